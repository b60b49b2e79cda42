// The library's own module data: tears down the process-wide state at unload, in the order in which its parts need each
// other. At the end of a program other threads may still run; locks and events work for them until the process ends.
#pragma once

#include "support/library.h"

class Module : public KestSupport::ModuleData {
  public:
    Module();
    ~Module() override;

    void initialize() override;
    void terminate() override;
};
