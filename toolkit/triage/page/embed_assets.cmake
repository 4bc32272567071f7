# Writes the source that holds the page's style sheet and script, with their hashes:
#
#     cmake -D STYLES=DIRECTORY -D SCRIPT=page.js -D OUTPUT=page_assets.cpp -P embed_assets.cmake
#
# The style sheet is made of the directory's files, in the order in which they build on each other.

# The SHA-256 of a text in base64 (RFC 4648), as a Content-Security-Policy has it.
function(hash_in_base64 content result)
  set(letters ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
  string(SHA256 digits "${content}")
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

set(style "")
foreach(part ground chart groups details media)
  file(READ ${STYLES}/${part}.css content)
  string(APPEND style "${content}\n")
endforeach()
file(READ ${SCRIPT} script)
hash_in_base64("${style}" style_hash)
hash_in_base64("${script}" script_hash)
file(WRITE ${OUTPUT} "#include \"toolkit/triage/page/page_assets.h\"

namespace tarvo::toolkit {

const std::string_view kPageStyle = R\"CONTENT(${style})CONTENT\";
const std::string_view kPageStyleHash = \"sha256-${style_hash}\";
const std::string_view kPageScript = R\"CONTENT(${script})CONTENT\";
const std::string_view kPageScriptHash = \"sha256-${script_hash}\";

}  // namespace tarvo::toolkit
")
