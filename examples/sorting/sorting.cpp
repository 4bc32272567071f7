// A program that knows nothing of the crash handler and is compiled as programs are, with
// optimisation: `tarvo exec -- sorting` crashes in the comparison of a sort, and `tarvo resolve`
// without an option shows the functions that the compiler has inlined, and the C library's.

#include <array>
#include <cstdlib>

namespace {

struct Customer {
  const int* orders;  // their prices, the last one 0; null where there are none
};

/// Inlined into Compare.
int Turnover(const Customer& customer) {
  int sum = 0;
  for (const int* price = customer.orders; *price != 0; ++price) sum += *price;
  return sum;
}

int Compare(const void* a, const void* b) {
  return Turnover(*static_cast<const Customer*>(a)) - Turnover(*static_cast<const Customer*>(b));
}

/// Inlined into main.
void SortByTurnover(std::array<Customer, 3>& customers) {
  std::qsort(customers.data(), customers.size(), sizeof(Customer), Compare);
}

}  // namespace

int main() {
  const std::array<int, 3> many = {12, 30, 0};
  const std::array<int, 2> few = {3, 0};
  std::array<Customer, 3> customers = {Customer{many.data()}, Customer{nullptr},
                                       Customer{few.data()}};
  SortByTurnover(customers);
  return *customers.front().orders;
}
