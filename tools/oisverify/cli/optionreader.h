// Typed reading of parsed options for the run command: numbers in a range, X,Y pairs and whole
// numbers, each failing with a message that names the option, the range and what was given.
#ifndef ZELK_TOOLS_OISVERIFY_OPTIONREADER_H
#define ZELK_TOOLS_OISVERIFY_OPTIONREADER_H

#include <errno.h>
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "cli/arguments.h"

namespace oisverify
{

class OptionReader
{
public:
    OptionReader(const Arguments& arguments, std::string* pError) : m_arguments(arguments), m_pError(pError) {}

    bool Fail(const std::string& message)
    {
        *m_pError = message;
        return false;
    }

    // A number, or "X,Y" for the two axes; a single number sets both.
    bool Pair(const char* pName, double min, double max, double* pX, double* pY)
    {
        if (!m_arguments.Has(pName))
        {
            return true;
        }
        const std::string text  = m_arguments.Value(pName);
        const size_t      comma = text.find(',');
        const std::string first = text.substr(0, comma);
        const std::string second = (comma == std::string::npos) ? first : text.substr(comma + 1);
        if (!ToNumber(first, min, max, pX) || !ToNumber(second, min, max, pY))
        {
            return Fail(RangeMessage(pName, text, min, max, " (or X,Y for the two axes)"));
        }
        return true;
    }

    bool Number(const char* pName, double min, double max, double* pValue)
    {
        if (m_arguments.Has(pName) && !ToNumber(m_arguments.Value(pName), min, max, pValue))
        {
            return Fail(RangeMessage(pName, m_arguments.Value(pName), min, max, ""));
        }
        return true;
    }

    bool Whole(const char* pName, uint64_t min, uint64_t max, uint64_t* pValue)
    {
        if (!m_arguments.Has(pName))
        {
            return true;
        }
        const std::string text  = m_arguments.Value(pName);
        char*             pEnd  = nullptr;
        errno                   = 0;
        unsigned long long value = strtoull(text.c_str(), &pEnd, 10);
        if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || errno != 0 || value < min ||
            value > max)
        {
            return Fail("--" + std::string(pName) + " needs a whole number from " + std::to_string(min) + " to " +
                        std::to_string(max) + ", got '" + text + "'");
        }
        *pValue = value;
        return true;
    }

    template <typename T>
    bool Whole32(const char* pName, uint64_t min, uint64_t max, T* pValue)
    {
        uint64_t value = *pValue;
        bool     ok    = Whole(pName, min, max, &value);
        *pValue        = static_cast<T>(value);
        return ok;
    }

    bool        Has(const char* pName) const { return m_arguments.Has(pName); }
    std::string Value(const char* pName) const { return m_arguments.Value(pName); }

    // Text read as a number in [min, max] (no trailing characters, finite).
    static bool ToNumber(const std::string& text, double min, double max, double* pValue)
    {
        char* pEnd = nullptr;
        errno      = 0;
        double v   = strtod(text.c_str(), &pEnd);
        if (text.empty() || *pEnd != '\0' || errno != 0 || !isfinite(v) || v < min || v > max)
        {
            return false;
        }
        *pValue = v;
        return true;
    }

private:
    static std::string RangeMessage(const char* pName, const std::string& text, double min, double max,
                                    const char* pForm)
    {
        char range[96];
        snprintf(range, sizeof(range), "a number from %g to %g", min, max);
        return "--" + std::string(pName) + " needs " + range + pForm + ", got '" + text + "'";
    }

    const Arguments& m_arguments;
    std::string*     m_pError;
};

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_OPTIONREADER_H
