#pragma once

#include <cstddef>

#include "crashlog/reading/tokenizer.h"
#include "tarvo/data_dictionary.h"
#include "tarvo/result.h"

/// One parser a kind of block. Each is called with the tokenizer on the keyword that announces its
/// block, reads up to and including the block's "}" (the end of the text stands for every "}" that
/// is missing) and returns what it read. An error names the report's line.
namespace tarvo::crashhandler {

// Sections of lines, one key and value each.
Result<DataDictionary> ParseApplicationInfo(Tokenizer& tokens);
Result<DataDictionary> ParseComputerInfo(Tokenizer& tokens);
Result<DataDictionary> ParseException(Tokenizer& tokens);
/// A thread's "Variables".
Result<DataDictionary> ParseVariables(Tokenizer& tokens);

/// "Call_Stacks": the threads.
Result<DataArray> ParseThreads(Tokenizer& tokens);
/// One "Call_Stack_Thread_<number>": frame lines, registers and variables. Memory is prepared for
/// as much as `previous` has, the thread before it: threads of one report are alike.
Result<DataDictionary> ParseCallstack(Tokenizer& tokens, const DataDictionary& previous);
/// A thread's "Registers": lines of pairs "name: value" or "name=value", separated by blanks. A "}"
/// that is all that remains of a line closes the block. Of two registers with one name the first
/// counts: the capture writes rip twice, at first the program counter. Memory is prepared for
/// `expected` registers.
Result<DataDictionary> ParseRegisters(Tokenizer& tokens, std::size_t expected);

/// "Loaded_Modules"; the first module is marked as the executable.
Result<DataArray> ParseLoadedModules(Tokenizer& tokens);
/// One module: "ModuleName = …" and the block that follows it.
Result<DataDictionary> ParseModuleInfo(Tokenizer& tokens);

/// What follows "Opened Scenes": a block of lines "name = path", or "=" and at most one document on
/// the rest of the line.
Result<DataArray> ParseOpenedScenes(Tokenizer& tokens);

/// "Critical_Log": every line that is not blank and does not start with "}", as it stands.
Result<DataArray> ParseCriticalLog(Tokenizer& tokens);

}  // namespace tarvo::crashhandler
