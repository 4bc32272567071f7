#pragma once

#include "tarvo/module.h"  // IWYU pragma: export
