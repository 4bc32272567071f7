#pragma once

#include <string_view>

/// The page's style sheet, the files of style/ one behind the other, and its script, page.js, as
/// embed_assets.cmake puts them into the program. The hashes are those by which a
/// Content-Security-Policy lets them in.
namespace tarvo::toolkit {

extern const std::string_view kPageStyle;
extern const std::string_view kPageStyleHash;  ///< "sha256-…"
extern const std::string_view kPageScript;
extern const std::string_view kPageScriptHash;

}  // namespace tarvo::toolkit
