// The library's own module data. At unload it deletes the process-wide state, a user of a part before that part. At the
// end of a program other threads may still run; locks and events work for them until the process ends.
#pragma once

#include "support/library.h"

class Module : public KestSupport::ModuleData {
  public:
    Module();
    ~Module() override;

    void initialize() override;
    void terminate() override;
};
