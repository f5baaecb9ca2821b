// Command-line argument parsing; see arguments.h.
#include "cli/arguments.h"

#include <sstream>

namespace oisverify
{

namespace
{
const OptionSpec* FindSpec(const std::vector<OptionSpec>& specs, const std::string& name)
{
    for (const OptionSpec& option : specs)
    {
        if (option.name == name)
        {
            return &option;
        }
    }
    return nullptr;
}
} // namespace

bool Arguments::Parse(int argc, char** argv, int first, const std::vector<OptionSpec>& specs, std::string* pError)
{
    for (int i = first; i < argc; i++)
    {
        std::string word = argv[i];
        if (word.compare(0, 2, "--") != 0 || word.size() == 2)
        {
            *pError = "unexpected argument '" + word + "'";
            return false;
        }
        std::string name  = word.substr(2);
        std::string value;
        bool        hasInlineValue = false;
        size_t      equals         = name.find('=');
        if (equals != std::string::npos)
        {
            value          = name.substr(equals + 1);
            name           = name.substr(0, equals);
            hasInlineValue = true;
        }
        const OptionSpec* pSpec = FindSpec(specs, name);
        if (pSpec == nullptr)
        {
            *pError = "unknown option '--" + name + "'";
            return false;
        }
        if (pSpec->takesValue && !hasInlineValue)
        {
            // "--gain --fps 30" is a forgotten value, not a gain of "--fps".
            if (i + 1 >= argc || std::string(argv[i + 1]).compare(0, 2, "--") == 0)
            {
                *pError = "option '--" + name + "' needs a value (" + pSpec->valueName + ")";
                return false;
            }
            value = argv[++i];
        }
        else if (!pSpec->takesValue && hasInlineValue)
        {
            *pError = "option '--" + name + "' takes no value";
            return false;
        }
        if (!pSpec->repeatable && Has(name))
        {
            *pError = "option '--" + name + "' given twice";
            return false;
        }
        m_values[name].push_back(value);
    }
    return true;
}

bool Arguments::Has(const std::string& name) const
{
    return m_values.count(name) != 0;
}

std::string Arguments::Value(const std::string& name, const std::string& fallback) const
{
    auto found = m_values.find(name);
    return (found == m_values.end() || found->second.empty()) ? fallback : found->second.back();
}

const std::vector<std::string>& Arguments::Values(const std::string& name) const
{
    static const std::vector<std::string> kNone;
    auto found = m_values.find(name);
    return (found == m_values.end()) ? kNone : found->second;
}

bool Arguments::NameValues(const std::string& name, std::vector<std::pair<std::string, std::string>>* pOut,
                           std::string* pError) const
{
    for (const std::string& text : Values(name))
    {
        size_t equals = text.find('=');
        if (equals == std::string::npos || equals == 0)
        {
            *pError = "option '--" + name + "' expects NAME=VALUE, got '" + text + "'";
            return false;
        }
        pOut->push_back({ text.substr(0, equals), text.substr(equals + 1) });
    }
    return true;
}

bool WantsHelp(int argc, char** argv, int first)
{
    for (int i = first; i < argc; i++)
    {
        if (std::string(argv[i]) == "--help" || std::string(argv[i]) == "-h")
        {
            return true;
        }
    }
    return false;
}

std::string DescribeOptions(const std::vector<OptionSpec>& specs)
{
    std::ostringstream text;
    for (const OptionSpec& option : specs)
    {
        std::string left = "  --" + option.name + (option.takesValue ? " " + option.valueName : "");
        text << left << std::string(left.size() < 32 ? 32 - left.size() : 1, ' ') << option.help
             << (option.repeatable ? " (repeatable)" : "") << "\n";
    }
    return text.str();
}

} // namespace oisverify
