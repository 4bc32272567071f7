#pragma once

#include <string_view>
#include <version>

#include "tarvo/connection.h"
#include "tarvo/format.h"
#include "tarvo/internal/border_layout.h"

/// The build tag: how one side of the border was built, as a text. Both sides make their own from
/// their own headers, with their own compiler:
///
///     SDK 2, Itanium C++ ABI, libstdc++ (C++11 ABI), layout 8c31…; GCC 12.2.0 (ABI 1017), …
///
/// Host and module must agree in what stands before the ";". What follows tells people which
/// compiler it was, and is not compared: GCC counts its ABI versions on, clang says 1002 whatever
/// it does, and both lay out and call alike what the layout's hash holds.
namespace tarvo {
namespace build_tag_internal {

#if !defined(__GXX_ABI_VERSION) || __GXX_ABI_VERSION < 1002
#error "Modules and hosts need a compiler that follows the Itanium C++ ABI."
#endif

#if defined(_LIBCPP_VERSION)
inline constexpr std::string_view kLibrary = "libc++";
inline constexpr int kLibraryRelease = _LIBCPP_VERSION;
inline constexpr std::string_view kLibraryAbi = _LIBCPP_ABI_VERSION == 1 ? "ABI 1" : "ABI 2";
#elif defined(__GLIBCXX__)
inline constexpr std::string_view kLibrary = "libstdc++";
inline constexpr int kLibraryRelease = _GLIBCXX_RELEASE;
#if defined(_GLIBCXX_DEBUG)
inline constexpr std::string_view kLibraryAbi =
    _GLIBCXX_USE_CXX11_ABI ? "C++11 ABI, debug mode" : "old ABI, debug mode";
#else
inline constexpr std::string_view kLibraryAbi = _GLIBCXX_USE_CXX11_ABI ? "C++11 ABI" : "old ABI";
#endif
#else
#error "Modules and hosts need libstdc++ or libc++."
#endif

#if defined(__clang__)
inline constexpr std::string_view kCompiler = "Clang";
inline constexpr int kCompilerVersion[] = {__clang_major__, __clang_minor__, __clang_patchlevel__};
#else
inline constexpr std::string_view kCompiler = "GCC";
inline constexpr int kCompilerVersion[] = {__GNUC__, __GNUC_MINOR__, __GNUC_PATCHLEVEL__};
#endif

}  // namespace build_tag_internal

/// The tag of the side that calls it. Belongs where `g_tarvo` is defined, which `tarvo_add_module`
/// sees to; that file is compiled with the options of the module's other sources, and with RTTI.
[[gnu::visibility("hidden")]] inline BuildTag MakeBuildTag() {
  using namespace build_tag_internal;
  const String text = Format("SDK @, Itanium C++ ABI, @ (@), layout @{x}; @ @.@.@ (ABI @), @ @",
                             kSdkVersion, kLibrary, kLibraryAbi, BorderLayout::Hash(), kCompiler,
                             kCompilerVersion[0], kCompilerVersion[1], kCompilerVersion[2],
                             __GXX_ABI_VERSION, kLibrary, kLibraryRelease);
  BuildTag tag;
  text.View().copy(tag.text, sizeof(tag.text) - 1);
  return tag;
}

/// Whether two sides with these tags can work together.
[[nodiscard]] inline bool AreCompatible(std::string_view a, std::string_view b) noexcept {
  return a.substr(0, a.find(';')) == b.substr(0, b.find(';'));
}

}  // namespace tarvo
