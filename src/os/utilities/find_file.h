// The search of KestFindFile.
#pragma once

#include <string>

#include "platform/files.h"

namespace KestSupport {

class FindFileBase {
  public:
    explicit FindFileBase(const std::string& pattern);
    FindFileBase(const FindFileBase&) = delete;
    FindFileBase& operator=(const FindFileBase&) = delete;
    virtual ~FindFileBase();

    virtual bool hasMore() const { return !m_exhausted; }
    virtual std::string next() = 0;

  protected:
    std::string m_pattern;
    std::string m_directory;  // the pattern's path; empty when it has none
    bool m_exhausted = true;
};

class FindFileImplementation : public FindFileBase {
  public:
    /// Starts the search.
    explicit FindFileImplementation(const std::string& pattern);

    std::string next() override;

  private:
    void advance();

    std::string m_findData;  // the name that the next call of next returns, unless exhausted
    platform::FileSearch m_findHandle;
};

}  // namespace KestSupport
