#include "toolkit/triage/result/triage_document.h"
#include "toolkit/triage/result/triage_page.h"
#include "toolkit/triage/result/triage_table.h"
#include "toolkit/triage/triage.h"
#include "toolkit/triage/triage_library.h"

extern "C" [[gnu::visibility("default")]] const tarvo::toolkit::TriageLibrary tarvoTriageLibrary = {
    tarvo::toolkit::RunTriage, tarvo::toolkit::AddLogs, tarvo::toolkit::TriageTable,
    tarvo::toolkit::TriageDocument, tarvo::toolkit::TriagePage};
