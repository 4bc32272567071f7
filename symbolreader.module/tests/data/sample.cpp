// What the tests' debug files are made of, for every platform: no header, no library. The tests
// look for the marks.

namespace shapes {

struct Square {
  int side;
  int Area() const;
};

[[gnu::always_inline]] inline int Twice(int value) {
  return value * 2 + value / 3;  // mark: inlined
}

[[gnu::always_inline]] inline int Thrice(int value) {
  if (value < 0) return Twice(-value);  // mark: middle
  return Twice(value) ^ value;
}

template <typename Work>
[[gnu::always_inline]] inline int Each(int count, Work work) {
  int sum = 0;
  for (int i = 0; i < count; ++i) sum += work(i);
  return sum;
}

[[gnu::noinline]] int Deep(int count) {
  struct Step {
    [[gnu::always_inline]] int operator()(int i) const { return Thrice(i + extra); }
    int extra;
  };
  return Each(count, [&](int i) { return Step{count}(i); });  // mark: deep
}

[[gnu::noinline]] int Square::Area() const {
  return Twice(side) * side;  // mark: method
}

namespace {

struct Local {
  [[gnu::always_inline]] int Get() const {
    return value ^ 21;  // mark: local
  }
  int value;
};

}  // namespace

template <typename T>
[[gnu::noinline]] T Largest(T first, T second) {
  if (first > second) return first;
  return second + 1;  // mark: template
}

}  // namespace shapes

extern "C" [[gnu::noinline]] int Plain(int value) {
  volatile int sum = value;
  for (int i = 0; i < value; ++i) sum = sum + shapes::Local{i}.Get();
  return sum;  // mark: plain
}

int main(int count, char**) {
  const shapes::Square square{count};
  return square.Area() + shapes::Deep(count) + shapes::Largest(count, 7) + shapes::Largest(2L, 3L) +
         Plain(count);
}
