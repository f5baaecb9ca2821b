// Result of a host-emulator operation: success, or failure with a message that says what went
// wrong and with which path or name, so that a test or the command line can show it as it is.
// The emulator never throws on purpose; every fallible call returns one of these.
#ifndef ZELK_CHIHOST_EMULATOR_STATUS_H
#define ZELK_CHIHOST_EMULATOR_STATUS_H

#include <string>
#include <utility>

// The emulator library is built with hidden visibility; its public classes are marked with this.
#define CHIHOST_EMULATOR_API __attribute__((visibility("default")))

namespace chihost
{

class Status
{
public:
    static Status Ok() { return Status(); }
    static Status Error(std::string message) { return Status(std::move(message)); }

    bool               IsOk() const { return !m_failed; }
    explicit           operator bool() const { return !m_failed; }
    const std::string& Message() const { return m_message; }

private:
    Status() = default;
    explicit Status(std::string message) : m_failed(true), m_message(std::move(message)) {}

    bool        m_failed = false;
    std::string m_message;
};

} // namespace chihost

#endif // ZELK_CHIHOST_EMULATOR_STATUS_H
