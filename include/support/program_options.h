// A command line, taken apart: the program's name, its options with their values, and its plain arguments in order.
//
// Options begin with one or two dashes, or on request with a slash. Without specifications every option is taken, as
// -name or -name=value. With them, an option that they do not name is refused, and one that needs data takes it from
// the next argument:
//
//   short  letters in the getopt manner, each followed by ':' when it takes data: "ab:c" for -a, -b DATA, -bDATA, -c
//   long   names between colons, with a '.' behind a name that takes data from the next argument:
//          ":help:output.:mode:" for --help, --output DATA, --mode=fast. One dash will do: -help.
//
// In one argument only the first letter counts: -ax is -a. An option given several times keeps all of its values.
//
// Threads: one object is for one thread at a time; the const operations may be called by several at once.
// Lifetime: nothing of the command line is referred to after construction. An iterator is good as long as its object.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "support/exceptions.h"
#include "support/export.h"
#include "support/properties.h"

namespace KestSupport {

class KEST_SUPPORT_EXPORT KestProgramOptions {
  public:
    using iterator = std::vector<std::string>::const_iterator;

    /// Takes every option. argv[0] is the program's name; it is empty when argc is 0. `allowSlash` lets options begin
    /// with '/' too.
    KestProgramOptions(int argc, char** argv, bool allowSlash);
    /// Takes the options of the two specifications. Throws KestException, code 0:
    /// "KestProgramOptions::parse: Unrecognized option: --" and the name, up to any '=', for two dashes;
    /// "KestProgramOptions::parse: Unrecognized option: -" and the letter for one dash or a slash;
    /// "KestProgramOptions::parse: option data not available for: -" and the option when its data should come next and
    /// nothing does.
    KestProgramOptions(int argc, char** argv, const std::string& shortSpec, const std::string& longSpec,
                       bool allowSlash);
    /// The same for a command line in one text, whose first token is the program's name. Blanks and tabs separate
    /// tokens; single or double quotes keep them, and are dropped; a quote doubled within its own kind stands for
    /// itself. Blanks at the beginning make an empty name.
    KestProgramOptions(const std::string& commandLine, bool allowSlash);
    KestProgramOptions(const std::string& commandLine, const std::string& shortSpec, const std::string& longSpec,
                       bool allowSlash);
    /// The copy's cursor is on its own first argument.
    KestProgramOptions(const KestProgramOptions& other);
    /// As copying; assignment to itself does nothing.
    KestProgramOptions& operator=(const KestProgramOptions& other);
    ~KestProgramOptions();

    const std::string& getProgramName() const { return m_programName; }

    /// The number of plain arguments.
    std::size_t getArgumentCount() const { return m_arguments.size(); }
    /// Throws KestException, code 0, with "KestProgramOptions::getArgument: index out of bounds".
    const std::string& getArgument(unsigned int index) const;
    /// The argument at the cursor, which must not be at the end.
    const std::string& getArgument() const { return *m_current; }
    /// The argument that an iterator of this object designates.
    const std::string& getArgument(const iterator& position) const { return *position; }

    /// The cursor stands on the first argument at first. Moving it checks nothing: compare with begin() and end().
    const std::string& operator*() const { return *m_current; }
    iterator& operator++() { return ++m_current; }
    iterator& operator--() { return --m_current; }
    iterator& reset() { return m_current = m_arguments.begin(); }
    iterator begin() const { return m_arguments.begin(); }
    iterator end() const { return m_arguments.end(); }
    const iterator& getIterator() const { return m_current; }

    /// The first value of an option, up to its first NUL; empty for one that was given without a value. Throws
    /// KestException, code 0, with an empty text when the option was not given.
    std::string getSwitch(const std::string& name) const;
    /// The same for an option that goes by two names; the second one wins.
    std::string getSwitch(const std::string& name1, const std::string& name2) const;

  private:
    struct Specification;
    class Arguments;

    void parse(int argc, char** argv, const Specification* specification, bool allowSlash);
    void parse(const std::string& commandLine, const Specification* specification, bool allowSlash);
    void addOption(const char* text, Arguments& arguments, const Specification* specification);
    void addShortOption(const char* option, Arguments& arguments, const Specification& specification);
    bool addLongOption(const char* option, Arguments& arguments, const Specification& specification);

    std::string m_programName;
    KestProperties<std::string> m_options;
    std::vector<std::string> m_arguments;
    iterator m_current;  // into m_arguments
};

}  // namespace KestSupport
