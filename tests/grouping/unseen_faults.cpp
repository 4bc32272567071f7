// Faults with numbers, as labelled_faults.cpp has them, but written without a look at the rules of
// grouping and kept out of their making: `unseen_faults FAULT ROUTE` shows what the rules are worth
// elsewhere.

#include <algorithm>
#include <any>
#include <cassert>
#include <coroutine>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <future>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <variant>
#include <vector>

namespace {
volatile int zero = 0;
volatile long sink = 0;
}  // namespace

template <class T>
T* bad() {
  return reinterpret_cast<T*>(long{zero} + 0x20);
}

extern "C" int compare_ints(const void* a, const void* b) {
  return *(const int*)a - *(const int*)(zero ? b : bad<int>());
}  // 1
extern "C" void c_parse(char* out, const char* in) {
  std::strcpy(out, zero ? in : bad<char>());
}  // 2
namespace net {
namespace detail {
template <class D>
struct Base {
  long go(int n) { return static_cast<D*>(this)->step(n) + 1; }
};
struct Impl : Base<Impl> {
  long step(int n) { return bad<long>()[n] * 7; }
};  // 3
}  // namespace detail
class Session {
 public:
  Session(int n) : n_(n) {}
  ~Session() {
    if (n_ > 0) *bad<int>() = n_;
  }  // 4
  int n_;
};
class Request {
 public:
  std::string header(const std::string& name) const { return headers_.at(name); }  // 5 out_of_range
  std::map<std::string, std::string> headers_;
};
inline namespace v2 {
struct Codec {
  int decode(std::string_view s) {
    if (s.size() < 100) throw std::runtime_error("short " + std::to_string(s.size()));
    return 1;
  }
};
}  // namespace v2
}  // namespace net
namespace ui {
struct Widget {
  virtual ~Widget() = default;
  virtual int paint(int w) = 0;
  int id = 0;
};
struct Button : Widget {
  int paint(int w) override {
    int* p = bad<int>();
    for (int i = 0; i < w; ++i) p[i] = i;
    return *p;
  }
};  // 7
struct Panel : Widget {
  std::vector<std::unique_ptr<Widget>> kids;
  int paint(int w) override {
    int s = 0;
    for (auto& k : kids) s += k->paint(w);
    return s + 1;
  }
};
template <class T>
class Matrix {
 public:
  Matrix operator*(const Matrix& o) const {
    Matrix r;
    for (int i = 0; i < 4; ++i) r.v[i] = v[i] * o.p()[i];
    return r;
  }  // 8
  const T* p() const { return bad<T>(); }
  T v[4] = {1, 2, 3, 4};
};
struct Point {
  int x = 1;
  Point& operator+=(const Point& o) {
    x += (&o)->x + bad<Point>()->x;
    return *this;
  }
};  // 9
}  // namespace ui
int divide_budget(int a, int b) { return a / b + 1; }  // 10
struct Visitor {
  int operator()(int v) const { return v; }
  int operator()(const std::string& s) const { return (int)s.size() / (zero + 0); }
};  // 11
void throw_in_noexcept(int n) noexcept {
  if (n >= 0) throw std::logic_error("never");
}  // 12
static void check_state(int n) {
  assert(n == 77 && "state");
  sink += n;
}  // 13
long deep_a(long n);
__attribute__((noinline)) long deep_b(long n) {
  volatile char buf[512];
  buf[0] = (char)n;
  return deep_a(n + 1) + buf[0];
}
__attribute__((noinline)) long deep_a(long n) {
  volatile char buf[256];
  buf[1] = (char)n;
  return deep_b(n + 1) + buf[1];
}  // 14
void free_twice(char* p) {
  std::free(p);
  std::free(p);
}  // 15
struct Task {
  struct promise_type {
    Task get_return_object() { return {std::coroutine_handle<promise_type>::from_promise(*this)}; }
    std::suspend_always initial_suspend() { return {}; }
    std::suspend_always final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { std::terminate(); }
  };
  std::coroutine_handle<promise_type> h;
};
Task worker_coroutine(int n) {
  int* p = bad<int>();
  co_await std::suspend_always{};
  *p = n;
  co_return;
}  // 16
struct Cache {
  std::unordered_map<int, std::string> m;
  size_t lookup(int k) {
    auto it = m.find(k);
    return (zero ? it->second : *bad<std::string>()).size();
  }
};  // 17
void sort_records(std::vector<int>& v) {
  std::sort(v.begin(), v.end(), [](int a, int b) { return *bad<int>() + a < b; });
}  // 18
std::function<int(int)> make_handler(int base) {
  return [base](int n) {
    int* q = bad<int>();
    return q[n] + base;
  };
}  // 19
void get_optional(std::optional<int> o) { sink += o.value(); }      // 20
void bad_any(const std::any& a) { sink += std::any_cast<int>(a); }  // 21
struct Stream {
  friend std::ostream& operator<<(std::ostream& o, const Stream&) { return o << *bad<int>(); }
};  // 22
void abort_on_error(const char* why) {
  std::fprintf(stderr, "%s\n", why);
  std::abort();
}  // 23
struct Exploding {
  Exploding() { throw 42; }
};
void make_exploding() {
  static Exploding e;
  (void)e;
}  // 24
typedef void (*Callback)(int);
void run_callback(Callback c, int n) { c(n); }                          // 25 null call
int list_end(std::list<int*>& l) { return **l.begin() + *bad<int>(); }  // 26
static void fault(int f) {
  switch (f) {
    case 1: {
      int v[] = {3, 1, 2};
      std::qsort(v, 3, sizeof(int), compare_ints);
      break;
    }
    case 2: {
      char b[16];
      c_parse(b, "x");
      break;
    }
    case 3: {
      net::detail::Impl i;
      sink += i.go(2);
      break;
    }
    case 4: {
      net::Session s(3 + zero);
      sink += s.n_;
      break;
    }
    case 5: {
      net::Request r;
      sink += r.header("Host").size();
      break;
    }
    case 6: {
      net::Codec c;
      sink += c.decode("abc");
      break;
    }
    case 7: {
      ui::Panel p;
      p.kids.push_back(std::make_unique<ui::Button>());
      sink += p.paint(3);
      break;
    }
    case 8: {
      ui::Matrix<double> m;
      sink += (long)(m * m).v[0];
      break;
    }
    case 9: {
      ui::Point a, b;
      a += b;
      sink += a.x;
      break;
    }
    case 10:
      sink += divide_budget(10, zero);
      break;
    case 11: {
      std::variant<int, std::string> v = std::string("abc");
      sink += std::visit(Visitor{}, v);
      break;
    }
    case 12:
      throw_in_noexcept(1);
      break;
    case 13:
      check_state(zero);
      break;
    case 14:
      sink += deep_a(1);
      break;
    case 15:
      free_twice((char*)std::malloc(2000));
      break;
    case 16: {
      auto t = worker_coroutine(1);
      t.h.resume();
      t.h.resume();
      break;
    }
    case 17: {
      Cache c;
      sink += c.lookup(1);
      break;
    }
    case 18: {
      std::vector<int> v{3, 2, 1};
      sort_records(v);
      break;
    }
    case 19: {
      auto h = make_handler(2);
      sink += h(1);
      break;
    }
    case 20:
      get_optional(std::nullopt);
      break;
    case 21:
      bad_any(std::string("x"));
      break;
    case 22: {
      std::ostringstream o;
      o << Stream{};
      break;
    }
    case 23:
      abort_on_error("fatal");
      break;
    case 24:
      make_exploding();
      break;
    case 25:
      run_callback(nullptr, 3);
      break;
    case 26: {
      int x = 1;
      std::list<int*> l{&x};
      sink += list_end(l);
      break;
    }
  }
}
struct Dispatcher {
  std::map<int, std::function<void()>> table;
  void post(int f) {
    table[f] = [f] { fault(f); };
    table[f]();
  }
};
int main(int c, char** v) {
  if (c < 3) {
    std::printf("26 faults 4 routes\n");
    return 0;
  }
  int f = std::atoi(v[1]);
  switch (std::atoi(v[2])) {
    case 1:
      fault(f);
      break;
    case 2: {
      std::thread t(fault, f);
      t.join();
      break;
    }
    case 3: {
      Dispatcher d;
      d.post(f);
      break;
    }
    case 4: {
      auto r = std::async(std::launch::async, [f]() noexcept {
        fault(f);
        return 1;
      });
      sink += r.get();
      break;
    }
  }
}
