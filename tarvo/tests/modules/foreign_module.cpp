// A module of another time: an SDK version VERSION, and behind it the bytes TEXT up to the end of
// the object, without a NUL.
#include <cstdint>

struct Foreign {
  std::uint32_t sdkVersion;
  std::uint32_t size;
  char text[sizeof(TEXT) - 1];
};

extern Foreign g_tarvo;
[[gnu::visibility("default")]] Foreign g_tarvo = [] {
  Foreign foreign{VERSION, sizeof(Foreign), {}};
  for (std::size_t i = 0; i < sizeof(foreign.text); ++i) foreign.text[i] = TEXT[i];
  return foreign;
}();
