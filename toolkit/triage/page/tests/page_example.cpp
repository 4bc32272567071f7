#include "page_example.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <random>
#include <string>

namespace tarvo::toolkit {
namespace {

using std::chrono::days;
using std::chrono::sys_days;

struct KnownFunction {
  const char* module;
  const char* function;
  const char* file;
};

/// Where crashes happen, and below that what calls it, in layers.
constexpr std::array kInnermost = {
    KnownFunction{"libscene.so", "scene::Node::WorldTransform() const", "src/scene/node.cpp"},
    KnownFunction{"libscene.so", "scene::Graph::Detach(scene::NodeId)", "src/scene/graph.cpp"},
    KnownFunction{"libscene.so",
                  "scene::(anonymous namespace)::CopyVisible(std::span<scene::Node const* const>, "
                  "std::vector<scene::DrawItem>&)",
                  "src/scene/visibility.cpp"},
    KnownFunction{
        "libmesh.so",
        "mesh::Decoder<mesh::QuantizedLayout, std::uint16_t>::DecodeStrip(mesh::StripHeader "
        "const&, std::span<std::byte const>)",
        "src/mesh/decoder.h"},
    KnownFunction{"libmesh.so", "mesh::HalfEdges::Collapse(unsigned int, float)",
                  "src/mesh/half_edges.cpp"},
    KnownFunction{
        "librender.so",
        "render::CommandList::BindTexture(render::Slot, std::shared_ptr<render::Texture> const&)",
        "src/render/command_list.cpp"},
    KnownFunction{
        "librender.so",
        "render::ShaderCache::Find(render::ShaderKey const&)::{lambda(auto const&)#1}::operator()",
        "src/render/shader_cache.cpp"},
    KnownFunction{"librender.so", "render::Frame::~Frame()", "src/render/frame.cpp"},
    KnownFunction{"libimport.so", "import::StepReader::Resolve(std::uint64_t)",
                  "src/import/step_reader.cpp"},
    KnownFunction{"libimport.so", "import::xml::Parser::operator>>(import::xml::Element&)",
                  "src/import/xml/parser.cpp"},
    KnownFunction{"libbase.so", "base::Pool<scene::Node>::Release(scene::Node*)",
                  "src/base/pool.h"},
    KnownFunction{"libbase.so", "base::Json::At(std::string_view) const", "src/base/json.cpp"},
    KnownFunction{"libnet.so", "net::Session::OnReadable(net::Events)", "src/net/session.cpp"},
    KnownFunction{"viewer", "ui::Outline::RowAt(int) const", "src/ui/outline.cpp"},
    KnownFunction{"viewer", "ui::Measure::Update(ui::Pointer const&)", "src/ui/measure.cpp"},
};
constexpr std::array kMiddle = {
    KnownFunction{"libscene.so",
                  "scene::Graph::ForEach<scene::(anonymous namespace)::Collect>(scene::(anonymous "
                  "namespace)::Collect&&)",
                  "src/scene/graph.h"},
    KnownFunction{"libscene.so",
                  "scene::Scene::Update(std::chrono::duration<double, std::ratio<1l, 1l> >)",
                  "src/scene/scene.cpp"},
    KnownFunction{"libmesh.so", "mesh::Simplify(mesh::Mesh const&, mesh::SimplifyOptions const&)",
                  "src/mesh/simplify.cpp"},
    KnownFunction{"librender.so", "render::Renderer::DrawShadows(render::Frame&)",
                  "src/render/shadows.cpp"},
    KnownFunction{"librender.so", "render::Renderer::Draw(scene::View const&)",
                  "src/render/renderer.cpp"},
    KnownFunction{"libimport.so",
                  "import::Load(std::filesystem::__cxx11::path const&, import::Progress&)",
                  "src/import/load.cpp"},
    KnownFunction{"viewer", "ui::Canvas::Paint()", "src/ui/canvas.cpp"},
    KnownFunction{"viewer", "ui::Document::Open(base::Url const&)", "src/ui/document.cpp"},
    KnownFunction{"libbase.so", "base::Signal<void (scene::NodeId)>::Emit(scene::NodeId) const",
                  "src/base/signal.h"},
    KnownFunction{"libbase.so", "base::Jobs::RunOne(std::unique_lock<std::mutex>&)",
                  "src/base/jobs.cpp"},
};
constexpr std::array kOutermost = {
    KnownFunction{"viewer", "ui::Loop::Dispatch(ui::Event const&)", "src/ui/loop.cpp"},
    KnownFunction{"viewer", "ui::Application::Run()", "src/ui/application.cpp"},
    KnownFunction{"viewer", "main", "src/main.cpp"},
    KnownFunction{"libc.so.6", "__libc_start_main", ""},
};
constexpr std::array kClasses = {
    "invalid memory access", "invalid memory access", "invalid memory access", "assertion",
    "std::out_of_range",     "stack overflow",        "out of memory",         "arithmetic error"};
constexpr std::array kSystems = {"Debian 12, Linux 6.1", "Ubuntu 24.04, Linux 6.8",
                                 "Windows 11 24H2", "macOS 15.1", "Fedora 41, Linux 6.11"};
constexpr sys_days kFirstDay = std::chrono::year(2026) / 8 / 24;
constexpr std::size_t kDays = 90;
constexpr std::size_t kBuilds = 9;

using Random = std::mt19937;

/// Below `limit`. The library's distributions may differ from one version to the next.
std::size_t Below(Random& random, std::size_t limit) { return random() % limit; }

template <typename Range>
const auto& OneOf(Random& random, const Range& range) {
  return range[Below(random, range.size())];
}

std::string BuildText(std::size_t number) { return "4." + std::to_string(number + 2) + ".0"; }

std::string IdText(std::uint64_t number) {
  std::array<char, 24> text{};
  std::snprintf(text.data(), text.size(), "%016llx",
                static_cast<unsigned long long>((number + 1) * 0x9e3779b97f4a7c15U));
  return text.data();
}

PageFrame FrameOf(Random& random, const KnownFunction& known) {
  PageFrame frame{.module = known.module, .function = known.function, .sourceFile = known.file};
  if (!frame.sourceFile.empty()) frame.sourceLine = 20 + Below(random, 600);
  return frame;
}

std::vector<PageFrame> StackOf(Random& random, std::size_t number) {
  std::vector<PageFrame> stack;
  PageFrame crashing = FrameOf(random, kInnermost[number % kInnermost.size()]);
  // Beyond the known functions groups differ by their names' ends.
  if (number >= kInnermost.size()) crashing.function += " [clone ." + std::to_string(number) + "]";
  crashing.isCrashing = true;
  if (Below(random, 3) == 0) {
    const KnownFunction& caller = OneOf(random, kInnermost);
    crashing.inlinedInto.push_back({caller.function, caller.file, 20 + Below(random, 600)});
    if (Below(random, 2) == 0)
      crashing.inlinedInto.push_back({OneOf(random, kMiddle).function, "src/scene/visit.h", 41});
  }
  if (number % 7 == 3)
    stack = {{.module = "libc.so.6", .function = "raise"},
             {.module = "libc.so.6", .function = "abort"}};
  stack.push_back(std::move(crashing));
  for (std::size_t i = 2 + Below(random, 12); i > 0; --i)
    stack.push_back(FrameOf(random, OneOf(random, kMiddle)));
  if (number % 5 == 4)
    for (std::uint64_t i = 0; i < 2; ++i)
      stack.insert(stack.begin() + 2,
                   PageFrame{.module = "libvendor_gl.so.535", .offset = 0x41c80 + i * 0x2210});
  for (const KnownFunction& known : kOutermost) stack.push_back(FrameOf(random, known));
  return stack;
}

/// When, and in which builds: a bug comes with a build, and some go with one.
void AddReports(PageGroup& group, Random& random) {
  const std::size_t firstBuild = Below(random, kBuilds + 3) % kBuilds;
  const std::size_t endBuild = std::min(kBuilds, firstBuild + 1 + Below(random, kBuilds));
  std::map<std::pair<std::size_t, std::size_t>, std::size_t> reports;
  for (std::size_t i = 0; i < group.count; ++i) {
    const std::size_t build = firstBuild + Below(random, endBuild - firstBuild);
    // A build is used from its day on, mostly in the weeks after it; at week-ends less.
    std::size_t day = build * 9 + std::min(Below(random, 30), Below(random, 30));
    if ((day + 1) % 7 < 2 && Below(random, 3) != 0) day += 2;
    ++reports[{std::min(day, kDays - 1), build}];
  }
  std::map<std::size_t, std::size_t> builds;
  for (const auto& [when, count] : reports) {
    group.days.push_back(
        {kFirstDay + days(static_cast<int>(when.first)), BuildText(when.second), count});
    builds[when.second] += count;
  }
  for (const auto& [build, count] : builds) group.builds.push_back({BuildText(build), count});
  group.first =
      group.days.front().day + std::chrono::minutes(7 * 60 + static_cast<int>(Below(random, 900)));
  group.last =
      group.days.back().day + std::chrono::minutes(7 * 60 + static_cast<int>(Below(random, 900)));
  group.isNew = builds.begin()->first == kBuilds - 1;
  group.isBack = builds.size() < builds.rbegin()->first - builds.begin()->first;
  group.isRising = !group.isNew && builds.rbegin()->first == kBuilds - 1 && Below(random, 6) == 0;
}

PageGroup GroupOf(Random& random, std::size_t number, std::size_t count) {
  PageGroup group{.id = IdText(number), .crashClass = OneOf(random, kClasses), .count = count};
  group.stack = StackOf(random, number);
  const auto crashing = std::ranges::find_if(group.stack, &PageFrame::isCrashing);
  group.signature = crashing->function;
  AddReports(group, random);
  std::size_t left = count;
  for (std::size_t i = Below(random, kSystems.size()); left > 0; i = (i + 1) % kSystems.size()) {
    const std::size_t part = group.systems.size() + 1 == kSystems.size() ? left : (left + 1) / 2;
    group.systems.push_back({kSystems[i], part});
    left -= part;
  }
  for (left = count; left > 0 && group.variants.size() < 9; left /= 2)
    group.variants.push_back(
        {IdText(number * 64 + group.variants.size() + 99),
         {group.signature, OneOf(random, kMiddle).function, OneOf(random, kMiddle).function},
         left - left / 2});
  for (std::size_t i = 0; i < std::min<std::size_t>(count, 25); ++i)
    group.reports.push_back("reports/2026-11/viewer-" + std::to_string(20000 + number * 31 + i) +
                            "_bugreport.resolved.json");
  if (number % 6 == 1) group.similar = {IdText(number - 1), IdText(number + 4)};
  if (number % 5 == 4)
    group.missingSymbols = {{"libvendor_gl.so.535 (build id 4be1a7)", 2 * count}};
  if (number % 11 == 2) group.formerIds = {IdText(number + 7'000'000)};
  return group;
}

}  // namespace

PageContent ExampleContent(std::size_t groups) {
  Random random(20261122);
  PageContent content{.title = "Viewer crashes", .document = "crashes.json"};
  content.made = kFirstDay + days(kDays) + std::chrono::minutes(5 * 60 + 33);
  for (std::size_t build = 0; build < kBuilds; ++build) content.builds.push_back(BuildText(build));
  for (std::size_t number = 0; number < groups; ++number)
    content.groups.push_back(
        GroupOf(random, number, 1 + 150 / (number + 1) + Below(random, 4) / 2));
  std::ranges::stable_sort(content.groups, std::greater(), &PageGroup::count);
  return content;
}

std::string TemplateName() {
  std::string arguments = "int";
  while (arguments.size() < 10'000)
    arguments =
        "std::pair<" + arguments + ", base::Tag<" + std::to_string(arguments.size()) + "> >";
  return "void base::Visitor<" + arguments + ">::VisitAll(std::vector<int> const&)";
}

PageGroup LargeGroup(std::size_t number) {
  const std::string name = "f<" + std::string(298, '<');
  PageFrame frame{.module = name, .function = name, .sourceFile = name};
  frame.inlinedInto.assign(17, {name, "file", 1});
  PageGroup group{.id = IdText(number), .signature = name, .crashClass = name, .count = 5000};
  group.stack.assign(21, frame);
  group.stack[3].isCrashing = true;
  for (std::size_t i = 0; i < 25; ++i) {
    const std::string text = std::to_string(i) + name;
    group.builds.push_back({text, i + 1});
    group.systems.push_back({text, 201 - i});
    group.reports.push_back(text);
    group.similar.push_back(text);
    group.missingSymbols.push_back({text, 1});
    group.variants.push_back({text, {name, name}, 1});
    group.days.push_back({kFirstDay + days(static_cast<int>(i)), text, i});
  }
  return group;
}

PageContent HostileContent() {
  const std::string text(kHostileText);
  const auto hostile = [&](const char* name) { return name + text; };
  PageContent content{.title = hostile("title"), .document = hostile("document")};
  content.builds = {hostile("build"), ""};
  content.skipped = 3;
  PageGroup group{.id = IdText(0),
                  .formerIds = {hostile("former")},
                  .signature = hostile("signature"),
                  .crashClass = hostile("class"),
                  .count = 40};
  const sys_days day = kFirstDay;
  group.days = {{day, hostile("build"), 38}, {day + days(22000), "", 1}, {sys_days::max(), "", 1}};
  group.builds = {{hostile("build"), 38}, {"", 2}};
  group.systems = {{hostile("system"), 39}, {"", 1}};
  group.first = day;
  group.isNew = group.isBack = group.isRising = true;
  group.stack = {{.module = hostile("module"),
                  .function = hostile("function"),
                  .sourceFile = hostile("/file"),
                  .sourceLine = 1,
                  .inlinedInto = {{hostile("caller"), hostile("/other"), 2}}},
                 {.function = TemplateName(), .isCrashing = true},
                 {.module = "libvendor.so", .offset = 0x1234},
                 {}};
  group.variants = {{hostile("variant"), {hostile("frame"), TemplateName()}, 30}, {"b", {}, 10}};
  group.reports = {hostile("report"), "javascript:alert(1)", std::string(3000, 'r')};
  group.similar = {IdText(1), hostile("similar")};
  group.missingSymbols = {{hostile("missing"), 4}, {"", 1}};
  content.groups = {group, LargeGroup(1), {.id = IdText(2), .count = 1}};
  return content;
}

}  // namespace tarvo::toolkit
