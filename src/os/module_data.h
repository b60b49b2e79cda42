// The library's own module data: makes the process-wide state at load, and tears it down at unload in the order in
// which its parts need each other.
#pragma once

#include "support/library.h"

class Module : public KestSupport::ModuleData {
  public:
    Module();
    ~Module() override;

    void initialize() override;
    void terminate() override;
};
