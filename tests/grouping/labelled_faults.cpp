// Faults with numbers, each reached on several routes: `labelled_faults FAULT ROUTE`. The number is
// the truth that groups are measured against (scripts/grouping-figures). Code as programs have it:
// nothing is kept from the optimiser but the values that decide.

#include <algorithm>
#include <any>
#include <array>
#include <cassert>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace {
volatile long g_zero = 0;
volatile long g_sum = 0;

template <typename T>
T* Nowhere() {
  return reinterpret_cast<T*>(g_zero + 16);
}
}  // namespace

namespace scene {

struct Node {
  long value = 1;
  Node* next = nullptr;
  virtual long Visit(long depth) { return value + depth; }
  virtual ~Node() = default;
};

class Graph {
 public:
  long Update(long step) {
    long* slot = Nowhere<long>();
    for (long i = 0; i < 3 + g_zero; ++i) slot[i] = step * i;  // 1
    return slot[0] + 1;
  }
  long Draw(long step) {
    const Node* node = Nowhere<Node>();
    long sum = 0;
    for (long i = 0; i < step + 1; ++i) sum += node->value * i;  // 2
    return sum;
  }
  long operator[](long index) const {
    const long* values = Nowhere<long>();
    return values[index] * 3;  // 3
  }
  long operator()(long a, long b) const { return a * *Nowhere<long>() - b; }  // 4
  explicit operator bool() const { return *Nowhere<long>() > 7; }             // 5
};

class Mesh {
 public:
  long Update(long step) {
    auto* faces = Nowhere<std::array<long, 4>>();
    std::rotate(faces->begin(), faces->begin() + 1, faces->end());  // 6
    return (*faces)[0] + step;
  }
  template <typename T>
  long Scale(T factor) {
    T* first = Nowhere<T>();
    return static_cast<long>(*first * factor + 2);  // 7
  }
};

namespace {
long Hidden(long step) {
  short* table = Nowhere<short>();
  table[step] = static_cast<short>(step + 5);  // 8
  return table[0];
}

struct Cache {
  long Look(long key) {
    char* bytes = Nowhere<char>();
    return bytes[key] + bytes[key + 1] * 9;  // 9
  }
};
}  // namespace

static long Private(long step) {
  int* numbers = Nowhere<int>();
  numbers[2] -= static_cast<int>(step);  // 10
  return numbers[2];
}

long InLambda(long step) {
  const auto fill = [step](long* to) {
    *to = step * 11;  // 11
    return *to + 1;
  };
  return fill(Nowhere<long>()) + 2;
}

long InAlgorithm(long step) {
  std::vector<long> values(5, step);
  std::for_each(values.begin(), values.end(), [](long& value) {
    value += *Nowhere<long>() / 3;  // 12
    g_sum = g_sum + value;
  });
  return values[0];
}

long InGenericLambda(long step) {
  std::vector<short> values(4, static_cast<short>(step));
  const auto total = [](auto sum, auto value) { return sum + value + *Nowhere<short>(); };  // 13
  return std::accumulate(values.begin(), values.end(), 0L, total) + 1;
}

long InFunctionObject(long step) {
  const std::function<long(long)> work = [&](long by) { return Nowhere<long>()[by] ^ step; };  // 14
  return work(3) + 1;
}

long InComparison(long step) {
  std::vector<long> values = {3, 1, 2, step};
  std::sort(values.begin(), values.end(),
            [](long a, long b) { return a + *Nowhere<long>() < b; });  // 15
  return values[0];
}

int CompareRecords(const void* a, const void* b) {
  return *static_cast<const int*>(a) - *static_cast<const int*>(b) + *Nowhere<int>();  // 16
}

long InSortOfC(long step) {
  int values[] = {3, 2, 1, static_cast<int>(step)};
  std::qsort(values, 4, sizeof(int), CompareRecords);
  return values[0];
}

long CopyBlock(long step) {
  char buffer[64] = {};
  std::memcpy(buffer, Nowhere<char>(), static_cast<std::size_t>(48 + step));  // 17
  return buffer[3];
}

long MeasureName(long step) {
  return static_cast<long>(std::strlen(Nowhere<char>())) + step;
}  // 18

long ClearBlock(long step) {
  std::memset(Nowhere<char>(), static_cast<int>(step),
              4000 + static_cast<std::size_t>(step));  // 19
  return step;
}

long AtIndex(long step) {
  const std::vector<long> values(3, step);
  return values.at(static_cast<std::size_t>(7 + g_zero));  // 20
}

long LookUp(long step) {
  std::map<std::string, long> names = {{"one", 1}};
  names["two"] = step;
  return names.at("three");  // 21
}

struct ParseError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

long Parse(long step) {
  if (step >= g_zero) throw ParseError("line " + std::to_string(step));  // 22
  return step;
}

long MustNotThrow(long step) noexcept {
  if (step >= g_zero) throw std::logic_error("thrown where nothing may be");  // 23
  return step;
}

long TakeMemory(long step) {
  std::vector<std::unique_ptr<char[]>> blocks;
  for (long i = 0; i <= step; ++i)
    blocks.push_back(std::make_unique<char[]>(std::size_t{1} << (61 + g_zero)));  // 24
  return blocks[0][0];
}

long CheckInput(long step) {
  if (step >= g_zero) std::abort();  // 25
  return step;
}

long FreeTwice(long step) {
  long* block = new long[static_cast<std::size_t>(9 + step)];
  long* volatile again = block;
  delete[] block;
  delete[] again;  // 26
  return step;
}

long FreeForeign(long step) {
  static long numbers[8];
  void* volatile block = &numbers[3];
  std::free(block);  // 27
  return step;
}

long Divide(long step) { return (step + 100) / g_zero; }  // 28

long Recurse(long depth) {
  volatile char space[200];
  space[depth & 63] = static_cast<char>(depth);
  return depth < 0 ? 0 : Recurse(depth + 1) + space[depth & 63];  // 29
}

long Pong(long depth);
long Ping(long depth) {
  volatile char space[300];
  space[depth & 63] = 1;
  return depth < 0 ? 0 : Pong(depth + 1) + space[depth & 63];  // 30
}
long Pong(long depth) {
  volatile char space[100];
  space[depth & 63] = 2;
  return depth < 0 ? 1 : Ping(depth + 1) + space[depth & 63];
}

long CallWild(long step) {
  using Function = long (*)(long);
  Function volatile function = reinterpret_cast<Function>(0x1234 + g_zero);
  return function(step) + 1;  // 31
}

struct Side {
  virtual long Touch(long step) = 0;
  virtual ~Side() = default;
};
struct Shape : Node, Side {
  long Visit(long depth) override { return depth * *Nowhere<long>() + 1; }  // 32
  long Touch(long step) override {
    *Nowhere<long>() = step - 4;  // 33
    return step;
  }
  ~Shape() override { *Nowhere<long>() = value; }  // 34
};

long VisitShape(long step) {
  const std::unique_ptr<Node> node(new Shape);
  return node->Visit(step) + 1;
}

long TouchShape(long step) {
  Side* volatile side = new Shape;
  return side->Touch(step) + 1;
}

long DropShape(long step) {
  Node* volatile node = new Shape;
  Node* dropped = node;
  delete dropped;
  return step + 1;
}

struct Reader {
  explicit Reader(long step) : first(*Nowhere<long>() + step) {}  // 35
  long first;
};

long WalkList(Node* node, long depth) {
  if (depth > 100 + g_zero) return 0;
  if (depth == 5 + g_zero) node = Nowhere<Node>();
  return node->value + WalkList(node->next, depth + 1);  // 36
}

long InLocalClass(long step) {
  struct Walker {
    long Run(long from) const { return Nowhere<long>()[from] % 13; }  // 37
  };
  return Walker{}.Run(step) + 1;
}

long OpenValue(long step) {
  const std::variant<long, std::string> value = step;
  return static_cast<long>(std::get<std::string>(value).size());  // 38
}

long Take(const std::optional<std::string>& name) {
  return static_cast<long>(name.value().size());  // 39
}

long Trap(long step) {
  if (step >= g_zero) __builtin_trap();  // 40
  return step;
}

using Fault = long (*)(long);

long Walk(long step) {
  std::array<Node, 3> nodes;
  nodes[0].next = &nodes[1];
  nodes[1].next = &nodes[2];
  nodes[2].next = nodes.data();
  return WalkList(nodes.data(), step);
}

const std::array<Fault, 40> kFaults = {
    [](long s) { return Graph().Update(s); },
    [](long s) { return Graph().Draw(s); },
    [](long s) { return Graph()[s]; },
    [](long s) { return Graph()(s, 2); },
    [](long s) { return Graph() ? s : 1; },
    [](long s) { return Mesh().Update(s); },
    [](long s) { return Mesh().Scale(2.5) + s; },
    Hidden,
    [](long s) { return Cache().Look(s); },
    Private,
    InLambda,
    InAlgorithm,
    InGenericLambda,
    InFunctionObject,
    InComparison,
    InSortOfC,
    CopyBlock,
    MeasureName,
    ClearBlock,
    AtIndex,
    LookUp,
    Parse,
    MustNotThrow,
    TakeMemory,
    CheckInput,
    FreeTwice,
    FreeForeign,
    Divide,
    Recurse,
    Ping,
    CallWild,
    VisitShape,
    TouchShape,
    DropShape,
    [](long s) { return Reader(s).first; },
    Walk,
    InLocalClass,
    OpenValue,
    [](long s) { return Take(s > 1000 ? std::optional<std::string>("x") : std::nullopt); },
    Trap};

}  // namespace scene

namespace route {

struct Command {
  virtual long Execute(scene::Fault fault, long step) = 0;
  virtual ~Command() = default;
};
struct Redo : Command {
  long Execute(scene::Fault fault, long step) override { return fault(step + 1) + 1; }
};

long Direct(scene::Fault fault) { return fault(1 + g_zero) + 1; }

long OnThread(scene::Fault fault) {
  long result = 0;
  std::thread([&] { result = fault(2 + g_zero) + 1; }).join();
  return result;
}

template <typename Work>
long Repeat(Work work, long times) {
  long sum = 0;
  for (long i = 0; i < times; ++i) sum += work(i + g_zero);
  return sum + 1;
}
long InTemplate(scene::Fault fault) { return Repeat(fault, 2); }

long ByCommand(scene::Fault fault) {
  const std::unique_ptr<Command> command = std::make_unique<Redo>();
  const std::function<long(long)> call = [&](long s) { return command->Execute(fault, s) + 1; };
  return call(3 + g_zero) + 1;
}

constexpr std::array<long (*)(scene::Fault), 4> kRoutes = {Direct, OnThread, InTemplate, ByCommand};

}  // namespace route

int main(int count, char** arguments) {
  if (count != 3) {
    std::printf("%zu faults, %zu routes\n", scene::kFaults.size(), route::kRoutes.size());
    return 2;
  }
  const auto fault = static_cast<std::size_t>(std::atoi(arguments[1])) - 1;
  const auto way = static_cast<std::size_t>(std::atoi(arguments[2]));
  g_sum = route::kRoutes.at(way)(scene::kFaults.at(fault));
  return static_cast<int>(g_sum & 1);
}
