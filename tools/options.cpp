#include "options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace kxcli {

Options::Options(const std::vector<std::string>& args, const std::set<std::string>& valued,
                 const std::set<std::string>& flags)
{
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg.size() < 2 || arg[0] != '-' || arg == "-") {
            positional_.push_back(arg);
            continue;
        }
        std::string name = arg, value;
        const std::size_t eq = arg.find('=');
        const bool inlineValue = eq != std::string::npos;
        if (inlineValue) {
            name = arg.substr(0, eq);
            value = arg.substr(eq + 1);
        }
        if (valued.count(name)) {
            if (!inlineValue) {
                if (i + 1 >= args.size())
                    throw UsageError("option '" + name + "' needs a value");
                value = args[++i];
            }
            values_[name] = value;
        } else if (flags.count(name) && !inlineValue) {
            flags_.insert(name);
        } else {
            throw UsageError("unknown option '" + name + "'");
        }
    }
}

std::string Options::value(const std::string& name, const std::string& fallback) const
{
    auto found = values_.find(name);
    return found == values_.end() ? fallback : found->second;
}

namespace {

double parseNumber(const std::string& name, const std::string& text)
{
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || errno == ERANGE || std::isnan(v))
        throw UsageError("option '" + name + "' expects a number, not '" + text + "'");
    return v;
}

}  // namespace

double Options::number(const std::string& name, double fallback) const
{
    return has(name) ? parseNumber(name, value(name)) : fallback;
}

long Options::integer(const std::string& name, long fallback) const
{
    if (!has(name))
        return fallback;
    const double v = number(name, 0);
    if (v != std::floor(v) || std::fabs(v) > 1e9)
        throw UsageError("option '" + name + "' expects a whole number, not '" + value(name) + "'");
    return static_cast<long>(v);
}

std::pair<double, double> Options::pair(const std::string& name, double fallback) const
{
    if (!has(name))
        return {fallback, fallback};
    const std::string text = value(name);
    const std::size_t comma = text.find(',');
    if (comma == std::string::npos) {
        const double v = parseNumber(name, text);
        return {v, v};
    }
    return {parseNumber(name, text.substr(0, comma)), parseNumber(name, text.substr(comma + 1))};
}

}  // namespace kxcli
