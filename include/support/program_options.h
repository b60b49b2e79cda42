// Parses a command line into the program's name, the options with their values, and the plain arguments in order.
//
// Options begin with one or two dashes, or on request with a slash. Without specifications every option is accepted, as
// -name or -name=value. With specifications, an option that they do not name is an error, and an option that needs data
// takes it from the next argument:
//
//   short  letters in the getopt manner, each followed by ':' when it takes data: "ab:c" for -a, -b DATA, -bDATA, -c
//   long   names between colons, with a '.' after a name that takes data from the next argument:
//          ":help:output.:mode:" for --help, --output DATA, --mode=fast. One dash also works: -help.
//
// Values of long options with data, as in --output=DATA, need the constructor with KestGnuOptions, which also ends the
// options at "--".
//
// In one argument only the first letter counts: -ax is -a. An option that is given several times keeps all its values.
//
// KestOptionTable makes both specifications and the usage text from one table:
//
//     const KestOptionTable table{{'o', "output", "FILE", "where the result goes"}, {'h', "help", "", "this text"}};
//     const KestProgramOptions options(argc, argv, table.shortSpec(), table.longSpec(), KestGnuOptions());
//     if (options.isSet("h") || options.isSet("help")) std::cout << table.usage(KestGnuOptions());
//
// Threads: one thread at a time uses an object; several threads may call const operations at once.
// Lifetime: an object keeps copies, no pointers into the command line. An iterator is valid until its object is
// destroyed or assigned to.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/exceptions.h"
#include "support/export.h"
#include "support/properties.h"

namespace KestSupport {

/// Chooses the constructor of KestProgramOptions for command lines in the manner of GNU.
struct KestGnuOptions {};

/// A parsed command line.
class KEST_SUPPORT_EXPORT KestProgramOptions {
  public:
    /// A position among the plain arguments.
    using iterator = std::vector<std::string>::const_iterator;

    /// Accepts every option. argv[0] is the program's name; the name is empty if argc is 0. With `allowSlash` an option
    /// may also begin with '/'.
    KestProgramOptions(int argc, char** argv, bool allowSlash);
    /// Accepts the options of the two specifications. Throws KestException with code 0 and one of these texts:
    ///
    /// - "KestProgramOptions::parse: Unrecognized option: --" and the name, up to any '=', after two dashes
    /// - "KestProgramOptions::parse: Unrecognized option: -" and the letter, after one dash or a slash
    /// - "KestProgramOptions::parse: option data not available for: -" and the option, if the argument with its data is
    ///   missing
    KestProgramOptions(int argc, char** argv, const std::string& shortSpec, const std::string& longSpec,
                       bool allowSlash);
    /// The same for a command line in one text. Its first token is the program's name. Blanks and tabs separate tokens.
    /// Between single or double quotes they belong to the token; the quotes are removed. Between quotes, two quotes of
    /// the same kind are one literal quote. With blanks at the beginning the name is empty.
    KestProgramOptions(const std::string& commandLine, bool allowSlash);
    KestProgramOptions(const std::string& commandLine, const std::string& shortSpec, const std::string& longSpec,
                       bool allowSlash);
    /// Accepts the options of the two specifications, as the programs of GNU write them:
    ///
    ///   --name=DATA  and --name DATA for a long option that takes data; also with one dash
    ///   --name       for a long option without data; --name=DATA is refused
    ///   --           ends the options: all further arguments are plain
    ///   -            is a plain argument
    ///
    /// Throws like the constructor above, and for data that an option does not take KestException with code 0 and the
    /// text "KestProgramOptions::parse: option takes no data: -" and the option.
    KestProgramOptions(int argc, char** argv, const std::string& shortSpec, const std::string& longSpec,
                       KestGnuOptions);
    /// Copies everything except the cursor, which is on the first argument of the copy.
    KestProgramOptions(const KestProgramOptions& other);
    /// Copies like the constructor. Assignment to itself does nothing. After an exception the object is unchanged.
    KestProgramOptions& operator=(const KestProgramOptions& other);
    ~KestProgramOptions();

    /// Returns the program's name as the command line has it.
    const std::string& getProgramName() const KEST_SUPPORT_LIFETIMEBOUND { return m_programName; }

    /// The number of plain arguments.
    std::size_t getArgumentCount() const { return m_arguments.size(); }
    /// Returns the argument at the index, counted from 0. Throws KestException with code 0 and the text
    /// "KestProgramOptions::getArgument: index out of bounds".
    const std::string& getArgument(unsigned int index) const KEST_SUPPORT_LIFETIMEBOUND;
    /// Returns the argument at the cursor, which must not be at the end.
    const std::string& getArgument() const KEST_SUPPORT_LIFETIMEBOUND { return *m_current; }
    /// Returns the argument at an iterator of this object.
    const std::string& getArgument(const iterator& position) const { return *position; }

    /// The cursor starts at the first argument. It is moved without a check: compare it with begin() and end().
    const std::string& operator*() const { return *m_current; }
    iterator& operator++() { return ++m_current; }
    iterator& operator--() { return --m_current; }
    iterator& reset() { return m_current = m_arguments.begin(); }
    iterator begin() const KEST_SUPPORT_LIFETIMEBOUND { return m_arguments.begin(); }
    iterator end() const KEST_SUPPORT_LIFETIMEBOUND { return m_arguments.end(); }
    const iterator& getIterator() const { return m_current; }

    /// Returns the first value of an option, up to its first NUL; empty if the option was given without a value. Throws
    /// KestException with code 0 and an empty text if the option was not given.
    std::string getSwitch(const std::string& name) const;
    /// The same for an option with two names. If both were given, the value of the second name is returned.
    std::string getSwitch(const std::string& name1, const std::string& name2) const;
    /// Returns whether the option was given, with or without a value.
    bool isSet(const std::string& name) const;
    /// Returns the values of an option in the order of the command line; none if it was not given. Each time that it
    /// was given without a value counts as an empty one.
    std::vector<std::string> values(const std::string& name) const;

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

/// An option of a program: its row in a KestOptionTable.
struct KestOption {
    char letter = '\0';       ///< '\0': none
    std::string name;         ///< without dashes; empty: none
    std::string data;         ///< what the usage text calls the data, such as "FILE"; empty: the option takes none
    std::string description;  ///< a line feed begins a new line
};

/// The options of a program, from which the specifications and the usage text are made.
class KEST_SUPPORT_EXPORT KestOptionTable {
  public:
    /// Keeps a copy of the options, in their order.
    KestOptionTable(std::initializer_list<KestOption> options);
    explicit KestOptionTable(std::vector<KestOption> options);
    ~KestOptionTable();

    /// Both return a specification for KestProgramOptions.
    std::string shortSpec() const;
    std::string longSpec() const;

    /// Returns lines of at most `width` columns; 0: of any length. A line has the names of an option and, in a column
    /// of its own, the description, which continues on further lines. A description begins on the next line if the
    /// names are wider than a third of the width. A word that does not fit is not divided. One code point of UTF-8 is
    /// one column; in a text that is not UTF-8, one byte.
    ///
    ///   -o, --output FILE  where the result goes
    ///   -h, --help         this text
    std::string usage(std::size_t width = 80) const;
    /// The same with --output=FILE.
    std::string usage(KestGnuOptions, std::size_t width = 80) const;

  private:
    std::string usage(char beforeData, std::size_t width) const;

    std::vector<KestOption> m_options;
};

}  // namespace KestSupport
