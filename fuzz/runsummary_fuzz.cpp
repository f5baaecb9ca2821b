// Fuzz target of what the command line reads from outside: a run summary document
// (ParseRunSummary) and a node library's build ID (ElfBuildIdOf). An input starting with 'E' is
// the bytes of an ELF image after that byte; any other input is a document's text. Besides
// running under the sanitizers, each input is checked against properties the readers must keep:
//   - a document that is read writes back to a text that reads again, and writes back the same
//     (indented and on one line), so a summary survives any number of copies;
//   - a build ID is an even number of lower-case hex digits, at most the image's length twice.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "report/runsummary.h"
#include "report/toolversion.h"

namespace
{

void Require(bool condition, const char* pWhat)
{
    if (!condition)
    {
        fprintf(stderr, "runsummary_fuzz: property violated: %s\n", pWhat);
        abort();
    }
}

void CheckDocument(const std::string& text)
{
    const std::optional<oisverify::RunSummary> read = oisverify::ParseRunSummary(text);
    if (!read)
    {
        return;
    }
    for (bool compact : { false, true })
    {
        const std::string written = oisverify::RunSummaryJson(*read, compact);
        std::string       error;
        const std::optional<oisverify::RunSummary> again = oisverify::ParseRunSummary(written, &error);
        Require(again.has_value(), "a document written from a read one reads again");
        Require(oisverify::RunSummaryJson(*again, compact) == written, "a read document writes back the same");
    }
}

void CheckBuildId(const uint8_t* pData, size_t size)
{
    const std::string id = oisverify::ElfBuildIdOf(pData, size);
    Require(id.size() % 2 == 0 && id.size() <= 2 * size, "a build ID is whole bytes of the image");
    Require(id.find_first_not_of("0123456789abcdef") == std::string::npos, "a build ID is lower-case hex");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    if (size > 0 && pData[0] == 'E')
    {
        CheckBuildId(pData + 1, size - 1);
        return 0;
    }
    CheckDocument(std::string(reinterpret_cast<const char*>(pData), size));
    return 0;
}
