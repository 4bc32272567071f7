#pragma once

#include <string_view>

#include "indexer/address_reader.h"

namespace tarvo::symbolreader {

/// The two forms of the greeting of indexer_protocol.h.
void Greet(const ImageRange& image);
void GreetWithError(std::string_view text);

/// Answers questions of indexer_protocol.h from standard input on standard output until the input
/// ends. An answer that takes longer than `seconds` ends the process by SIGALRM.
void AnswerQuestions(AddressReader& reader, unsigned seconds);

}  // namespace tarvo::symbolreader
