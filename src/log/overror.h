#pragma once

#include <QMetaType>
#include <QString>

namespace OV {

// The result of an operation that can fail: code 0 is success. The message is for the user;
// technical detail (paths, library error texts) goes to the log instead.
class Error
{
public:
    Error() = default;
    Error(int code, const QString &message) : m_code(code), m_message(message) {}

    static Error success() { return Error(); }

    int code() const { return m_code; }
    QString message() const { return m_message; }
    bool isOk() const { return m_code == 0; }
    explicit operator bool() const { return m_code != 0; }

    bool operator==(const Error &other) const = default;

private:
    int m_code = 0;
    QString m_message;
};

} // namespace OV

Q_DECLARE_METATYPE(OV::Error)
