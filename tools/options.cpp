#include "options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace kxcli {

void optionError(const std::string& name, const std::string& what) { throw UsageError(name + ": " + what); }

std::string helpText(const CommandTable& command)
{
    std::ostringstream out;
    out << "Usage: kxfreq " << command.usage << "\n\n" << command.description << "\n";
    if (!command.options.empty())
        out << "\nOptions:\n";
    for (const OptionEntry& option : command.options) {
        std::string head = "  ";
        if (option.shortName)
            head += std::string(option.shortName) + ", ";
        head += option.name;
        if (option.value)
            head += std::string(" ") + option.value;
        const std::size_t column = 26;
        head += head.size() + 1 < column ? std::string(column - head.size(), ' ') : "\n" + std::string(column, ' ');
        std::string text = option.help;
        std::string indented;
        for (char c : text) {
            indented += c;
            if (c == '\n')
                indented += std::string(column, ' ');
        }
        out << head << indented << "\n";
    }
    if (command.epilog)
        out << "\n" << command.epilog;
    return out.str();
}

Options::Options(const CommandTable& command, const std::vector<std::string>& args)
{
    auto find = [&](const std::string& name) -> const OptionEntry* {
        for (const OptionEntry& option : command.options)
            if (name == option.name || (option.shortName && name == option.shortName))
                return &option;
        return nullptr;
    };
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg.size() < 2 || arg[0] != '-' || arg == "-" ||
            (std::isdigit(static_cast<unsigned char>(arg[1])) || arg[1] == '.')) {
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
        const OptionEntry* option = find(name);
        if (!option)
            throw UsageError("unknown option '" + name + "'");
        name = option->name;   // -o and its long name are one option
        if (option->value) {
            if (!inlineValue) {
                if (i + 1 >= args.size())
                    optionError(name, "needs a value (" + std::string(option->value) + ")");
                value = args[++i];
            }
        } else if (inlineValue) {
            optionError(name, "takes no value");
        }
        if (given_.count(name))
            optionError(name, "given more than once");
        given_[name] = value;
        order_.push_back(name);
    }
}

std::string Options::value(const std::string& name, const std::string& fallback) const
{
    auto found = given_.find(name);
    return found == given_.end() ? fallback : found->second;
}

namespace {

double parseNumber(const std::string& name, const std::string& text)
{
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || std::isspace(static_cast<unsigned char>(text[0])))
        optionError(name, "expects a number, not '" + text + "'");
    if (!std::isfinite(v) || errno == ERANGE)
        optionError(name, "expects a finite number, not '" + text + "'");
    return v;
}

}  // namespace

double Options::number(const std::string& name, double fallback) const
{
    return has(name) ? parseNumber(name, value(name)) : fallback;
}

long Options::integer(const std::string& name, long fallback, long low, long high) const
{
    if (!has(name))
        return fallback;
    const double v = number(name, 0);
    if (v != std::floor(v))
        optionError(name, "expects a whole number, not '" + value(name) + "'");
    if (v < low || v > high)
        optionError(name, "expects a number from " + std::to_string(low) + " to " + std::to_string(high) +
                              ", not '" + value(name) + "'");
    return static_cast<long>(v);
}

std::pair<double, double> Options::pair(const std::string& name, double fallback, bool* second) const
{
    if (second)
        *second = false;
    if (!has(name))
        return {fallback, fallback};
    const std::string text = value(name);
    const std::size_t comma = text.find(',');
    if (comma == std::string::npos) {
        const double v = parseNumber(name, text);
        return {v, v};
    }
    if (second)
        *second = true;
    return {parseNumber(name, text.substr(0, comma)), parseNumber(name, text.substr(comma + 1))};
}

std::string Options::choice(const std::string& name, const std::vector<std::string>& choices,
                            const std::string& fallback) const
{
    if (!has(name))
        return fallback;
    const std::string v = value(name);
    std::string list;
    for (std::size_t i = 0; i < choices.size(); ++i) {
        if (choices[i] == v)
            return v;
        list += (i == 0 ? "" : i + 1 == choices.size() ? " or " : ", ") + choices[i];
    }
    optionError(name, "expects " + list + ", not '" + v + "'");
}

void Options::refuse(const std::string& name, const std::string& why) const
{
    if (has(name))
        optionError(name, why);
}

}  // namespace kxcli
