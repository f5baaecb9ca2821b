// Command-line arguments of oisverify: "--name value", "--name=value" and bare flags, checked
// against the options a command declares so that a typo is an error, not a silent default.
#ifndef ZELK_TOOLS_OISVERIFY_ARGUMENTS_H
#define ZELK_TOOLS_OISVERIFY_ARGUMENTS_H

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace oisverify
{

struct OptionSpec
{
    std::string name;       // without the leading "--"
    bool        takesValue; // false: a flag
    bool        repeatable;
    std::string valueName;  // for help, e.g. "NAME=VALUE"
    std::string help;
};

class Arguments
{
public:
    // Parses argv[first..]; on error returns false with a message naming the offending word.
    bool Parse(int argc, char** argv, int first, const std::vector<OptionSpec>& specs, std::string* pError);

    bool                            Has(const std::string& name) const;
    std::string                     Value(const std::string& name, const std::string& fallback = "") const;
    const std::vector<std::string>& Values(const std::string& name) const;

    // "NAME=VALUE" texts of a repeatable option split at the first '='; false with a message for
    // a text without '=' or with an empty name.
    bool NameValues(const std::string& name, std::vector<std::pair<std::string, std::string>>* pOut,
                    std::string* pError) const;

private:
    std::map<std::string, std::vector<std::string>> m_values;
};

// Whether "--help" or "-h" is among argv[first..].
bool WantsHelp(int argc, char** argv, int first);

// Help text of a command's options, one line each.
std::string DescribeOptions(const std::vector<OptionSpec>& specs);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_ARGUMENTS_H
