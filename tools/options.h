#pragma once
// Command-line options of the kxfreq tool: positional arguments, options
// with a value (--name VALUE or --name=VALUE) and flags.
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace kxcli {

// A mistake in the command line; reported with a pointer to --help.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Options {
public:
    // `valued`: options that take a value; `flags`: options that do not.
    Options(const std::vector<std::string>& args, const std::set<std::string>& valued,
            const std::set<std::string>& flags);

    const std::vector<std::string>& positional() const { return positional_; }
    bool has(const std::string& name) const { return values_.count(name) || flags_.count(name); }
    std::string value(const std::string& name, const std::string& fallback = "") const;
    double number(const std::string& name, double fallback) const;
    long integer(const std::string& name, long fallback) const;
    // "A" or "A,B" as a pair (a single value stands for both).
    std::pair<double, double> pair(const std::string& name, double fallback) const;

private:
    std::vector<std::string> positional_;
    std::map<std::string, std::string> values_;
    std::set<std::string> flags_;
};

}  // namespace kxcli
