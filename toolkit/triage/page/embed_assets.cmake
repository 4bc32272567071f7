# Writes the source that holds the page's style sheet and script, with their hashes:
#
#     cmake -D STYLE=page.css -D SCRIPT=page.js -D OUTPUT=page_assets.cpp -P embed_assets.cmake

# The SHA-256 of a file in base64 (RFC 4648), as a Content-Security-Policy has it.
function(hash_in_base64 file result)
  set(letters ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
  file(SHA256 ${file} digits)
  # 32 bytes: ten groups of three, and two bytes that are filled up with one of zeros.
  string(APPEND digits 00)
  set(text "")
  foreach(group RANGE 10)
    math(EXPR start "${group} * 6")
    string(SUBSTRING ${digits} ${start} 6 bits)
    foreach(shift 18 12 6 0)
      math(EXPR index "(0x${bits} >> ${shift}) & 63")
      string(SUBSTRING ${letters} ${index} 1 letter)
      string(APPEND text ${letter})
    endforeach()
  endforeach()
  string(SUBSTRING ${text} 0 43 text)
  set(${result} "${text}=" PARENT_SCOPE)
endfunction()

file(READ ${STYLE} style)
file(READ ${SCRIPT} script)
hash_in_base64(${STYLE} style_hash)
hash_in_base64(${SCRIPT} script_hash)
file(WRITE ${OUTPUT} "#include \"toolkit/triage/page/page_assets.h\"

namespace tarvo::toolkit {

const std::string_view kPageStyle = R\"CONTENT(${style})CONTENT\";
const std::string_view kPageStyleHash = \"sha256-${style_hash}\";
const std::string_view kPageScript = R\"CONTENT(${script})CONTENT\";
const std::string_view kPageScriptHash = \"sha256-${script_hash}\";

}  // namespace tarvo::toolkit
")
