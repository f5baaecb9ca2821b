// Helpers for the tests of the command line: a temporary folder removed after the test, and a
// minimal markup check for the SVG and HTML the run writes (every tag closed in order, no
// attribute twice in a tag, no bare '&' in text).
#ifndef ZELK_TESTS_UNIT_OISVERIFY_CLITESTSUPPORT_H
#define ZELK_TESTS_UNIT_OISVERIFY_CLITESTSUPPORT_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace clitest
{

class TempFolder
{
public:
    TempFolder()
    {
        const char*       pBase   = getenv("TMPDIR");
        const std::string base    = (pBase != nullptr && pBase[0] != '\0') ? pBase : "/tmp";
        const std::string pattern = base + "/oisverify-test-XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        m_path = (mkdtemp(buffer.data()) != nullptr) ? buffer.data() : "";
    }
    ~TempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempFolder(const TempFolder&)            = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& Path() const { return m_path; }
    std::string        operator/(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

inline std::string ReadText(const std::string& path)
{
    std::ifstream      in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void WriteBytes(const std::string& path, size_t count, char value = 0)
{
    std::ofstream out(path, std::ios::binary);
    out << std::string(count, value);
}

// Empty when the markup is well formed; otherwise what is wrong first.
inline std::string CheckMarkup(const std::string& text)
{
    std::vector<std::string> open;
    size_t                   at = 0;
    while (at < text.size())
    {
        const size_t lt = text.find('<', at);
        const std::string between = text.substr(at, (lt == std::string::npos ? text.size() : lt) - at);
        for (size_t amp = between.find('&'); amp != std::string::npos; amp = between.find('&', amp + 1))
        {
            if (between.find(';', amp) == std::string::npos || between.find(';', amp) - amp > 6)
            {
                return "bare '&' in text: " + between.substr(amp, 20);
            }
        }
        if (lt == std::string::npos)
        {
            break;
        }
        const size_t gt = text.find('>', lt);
        if (gt == std::string::npos)
        {
            return "unterminated tag at " + std::to_string(lt);
        }
        const std::string tag = text.substr(lt + 1, gt - lt - 1);
        at = gt + 1;
        if (tag.empty() || tag[0] == '!' || tag[0] == '?')
        {
            continue;
        }
        if (tag[0] == '/')
        {
            if (open.empty() || open.back() != tag.substr(1))
            {
                return "</" + tag.substr(1) + "> closes " + (open.empty() ? "nothing" : "<" + open.back() + ">");
            }
            open.pop_back();
            continue;
        }
        const std::string name = tag.substr(0, tag.find_first_of(" \n/"));
        std::set<std::string> attributes;
        for (size_t eq = tag.find("=\""); eq != std::string::npos; eq = tag.find("=\"", tag.find('"', eq + 2) + 1))
        {
            const size_t start = tag.find_last_of(' ', eq) + 1;
            if (!attributes.insert(tag.substr(start, eq - start)).second)
            {
                return "attribute " + tag.substr(start, eq - start) + " twice in <" + name + ">";
            }
        }
        if (tag.back() != '/')
        {
            open.push_back(name);
        }
    }
    return open.empty() ? "" : "<" + open.back() + "> never closed";
}

inline size_t CountOf(const std::string& text, const std::string& needle)
{
    size_t count = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + needle.size()))
    {
        count++;
    }
    return count;
}

} // namespace clitest

#endif // ZELK_TESTS_UNIT_OISVERIFY_CLITESTSUPPORT_H
