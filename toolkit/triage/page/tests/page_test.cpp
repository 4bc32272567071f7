// What the triage page writes, as text; scripts/page-test looks at it in a browser.

#include "toolkit/triage/page/page.h"

#include <gtest/gtest.h>

#include <string>

#include "page_example.h"
#include "toolkit/triage/page/group_details.h"
#include "toolkit/triage/page/html.h"
#include "toolkit/triage/page/page_text.h"

namespace tarvo::toolkit {
namespace {

TEST(HtmlTest, OnlyLiteralsAndPiecesAreMarkup) {
  Html inner;
  inner.Add("<b>@</b>", "<\"'&>\n");
  Html html;
  html.Add("<p a='@'>@@ @", "'@'", inner, 3, 2.5);
  EXPECT_EQ(html.Text(), "<p a='&#39;@&#39;'><b>&lt;&quot;&#39;&amp;&gt;\\x0a</b>3 2.5");
}

TEST(PageTextTest, ShortNamesKeepTheFunction) {
  struct Case {
    std::string name;
    std::size_t width;
    std::string shown;
  };
  const std::string longType = "std::map<std::string, std::vector<std::pair<int, long>>>";
  const Case cases[] = {
      {"f(int)", 6, "f(int)"},
      {"f<" + longType + ">::g()", 40, "f<std::map<…>>::g()"},
      {"f<" + longType + ">::g(int)", 16, "f<…>::g(int)"},
      {"operator<< <" + longType + ">(int)", 30, "operator<< <std::map<…>>(int)"},
      {"C::operator()<" + longType + ">(int) const", 36, "C::operator()<…>(int) const"},
      {"my_operator<" + longType + ">(int)", 24, "my_operator<…>(int)"},
      {"C::operator->(" + longType + ")", 20, "C::operator->(…)"},
      {"(anonymous namespace)::f(" + longType + ")", 40, "(anonymous namespace)::f(std::map<…>)"},
      {"a)b<c, which is no name at all", 12, "a)b<c, … all"},
      {"\xe2\x80\xae" + std::string(50, 'a'), 20, "\\xe2\\x80\\xaea…aaaaaa"},
  };
  for (const Case& c : cases) EXPECT_EQ(ShortName(c.name, c.width), c.shown) << c.name;
  EXPECT_EQ(ShortName(TemplateName(), 60),
            "void base::Visitor<…>::VisitAll(std::vector<int> const&)");
}

TEST(PageTest, StaysSmallWhateverIsInIt) {
  PageContent content;
  for (std::size_t i = 0; i < kPageGroups + 5; ++i) content.groups.push_back(LargeGroup(i));
  const std::string page = MakePage(content);
  EXPECT_LE(page.size(), kLargestPage);
  EXPECT_NE(page.find("And 5 less frequent groups with 25,000 reports (0.2 %)."),
            std::string::npos);
}

TEST(PageTest, ListsNoMoreThanItSays) {
  PageContent content;
  PageGroup& group = content.groups.emplace_back();
  group.count = 1234;
  group.stack.assign(kPageFrames + 3, {.function = "frame"});
  group.furtherFrames = 5;
  group.reports.assign(kPageReports + 9, "report");
  const std::string page = MakePage(content);
  const auto count = [&](std::string_view text) {
    std::size_t found = 0;
    for (std::size_t at = page.find(text); at != std::string::npos; at = page.find(text, at + 1))
      ++found;
    return found;
  };
  EXPECT_EQ(count("<li>frame"), kPageFrames);
  EXPECT_EQ(count("and 8 further frames"), 1U);
  EXPECT_EQ(count("<li>report"), kPageReports);
  EXPECT_EQ(count("and 1,214 more"), 1U);
  EXPECT_EQ(count("None of the reports says when it happened."), 1U);
}

}  // namespace
}  // namespace tarvo::toolkit
