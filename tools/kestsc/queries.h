// What config shows when it is called without a change.
#pragma once

#include "manager.h"
#include "report.h"
#include "words.h"

namespace kestsc {

void showConfiguration(const Manager& manager, const Task& task, Report& report);

}  // namespace kestsc
