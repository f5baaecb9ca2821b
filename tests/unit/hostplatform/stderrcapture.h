// Captures what this process writes to file descriptor 2 between construction and Stop(), so
// tests can check the host kit's diagnostic lines.
#ifndef ZELK_TESTS_HOSTPLATFORM_STDERRCAPTURE_H
#define ZELK_TESTS_HOSTPLATFORM_STDERRCAPTURE_H

#include <stdio.h>
#include <unistd.h>

#include <string>

class StderrCapture
{
public:
    StderrCapture()
        : m_pFile(tmpfile()), m_savedFd(dup(STDERR_FILENO))
    {
        fflush(stderr);
        dup2(fileno(m_pFile), STDERR_FILENO);
    }
    ~StderrCapture() { Stop(); }

    // Restores stderr and returns everything written meanwhile.
    std::string Stop()
    {
        if (nullptr != m_pFile)
        {
            fflush(stderr);
            dup2(m_savedFd, STDERR_FILENO);
            close(m_savedFd);
            rewind(m_pFile);
            char   chunk[4096];
            size_t got = 0;
            while ((got = fread(chunk, 1, sizeof(chunk), m_pFile)) > 0)
            {
                m_text.append(chunk, got);
            }
            fclose(m_pFile);
            m_pFile = nullptr;
        }
        return m_text;
    }

private:
    FILE*       m_pFile;
    int         m_savedFd;
    std::string m_text;
};

#endif // ZELK_TESTS_HOSTPLATFORM_STDERRCAPTURE_H
