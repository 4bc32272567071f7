#pragma once

#include "toolkit/triage/model/triage_result.h"

namespace tarvo::toolkit {

/// Sets similarTo of each group: at most five others whose most frequent variants are alike
/// (similarity.h). Only groups that share a frame that is not everywhere are compared.
void SetSimilar(std::vector<TriageGroup>& groups);

}  // namespace tarvo::toolkit
