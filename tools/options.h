#pragma once
// Command-line options of the kxfreq tool. Each command describes its
// options in one table; the same table drives parsing and --help.
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kxcli {

// A mistake in the command line; reported with a pointer to --help.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct OptionEntry {
    const char* name;        // "--frequency"
    const char* shortName;   // "-o", or nullptr
    const char* value;       // the value's placeholder ("F"); nullptr for a flag
    const char* help;        // lines after the first start with '\n'
};

struct CommandTable {
    const char* name;
    const char* usage;         // after "Usage: kxfreq "
    const char* description;   // paragraphs before the options
    std::vector<OptionEntry> options;
    const char* epilog;        // after the options, or nullptr
};

// The --help text of a command.
std::string helpText(const CommandTable& command);

class Options {
public:
    // Parses args against the command's table: --name VALUE, --name=VALUE,
    // -o VALUE, flags. Unknown and repeated options are usage errors.
    Options(const CommandTable& command, const std::vector<std::string>& args);

    const std::vector<std::string>& positional() const { return positional_; }
    bool has(const std::string& name) const { return given_.count(name) != 0; }
    std::string value(const std::string& name, const std::string& fallback = "") const;
    // Finite numbers only; the message names the option.
    double number(const std::string& name, double fallback) const;
    long integer(const std::string& name, long fallback, long low, long high) const;
    // "A" or "A,B"; `second` tells whether B was given.
    std::pair<double, double> pair(const std::string& name, double fallback, bool* second = nullptr) const;
    // One of `choices`, or the fallback when absent.
    std::string choice(const std::string& name, const std::vector<std::string>& choices,
                       const std::string& fallback) const;
    // The options given, in command-line order.
    const std::vector<std::string>& given() const { return order_; }
    // Throws a usage error when the option was given: it is not used here.
    void refuse(const std::string& name, const std::string& why) const;

private:
    std::vector<std::string> positional_;
    std::map<std::string, std::string> given_;
    std::vector<std::string> order_;
};

// "--name: what".
[[noreturn]] void optionError(const std::string& name, const std::string& what);

}  // namespace kxcli
