// A program that knows nothing of the crash handler and is compiled as programs are, with optimisation:
// `tarvo exec -- sorting` crashes in the comparison of a sort, and `tarvo resolve` without an option shows the
// functions that the compiler has inlined, and the C library's.

#include <array>
#include <cstdlib>

namespace {

struct Customer {
  const int* orders;  // null where there are none
};

/// Inlined into Compare.
int OrdersOf(const Customer& customer) { return *customer.orders; }

int Compare(const void* a, const void* b) {
  return OrdersOf(*static_cast<const Customer*>(a)) - OrdersOf(*static_cast<const Customer*>(b));
}

/// Inlined into main.
void SortByOrders(std::array<Customer, 3>& customers) {
  std::qsort(customers.data(), customers.size(), sizeof(Customer), Compare);
}

}  // namespace

int main() {
  const int many = 12;
  const int few = 3;
  std::array<Customer, 3> customers = {Customer{&many}, Customer{nullptr}, Customer{&few}};
  SortByOrders(customers);
  return *customers.front().orders;
}
