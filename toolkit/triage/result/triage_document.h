#pragma once

#include "tarvo/data_dictionary.h"
#include "toolkit/triage/model/triage_result.h"

namespace tarvo::toolkit {

/// The result as JSON has it; docs/schema/triage.schema.json describes it.
[[nodiscard]] DataDictionary TriageDocument(const TriageResult& result);

}  // namespace tarvo::toolkit
