#pragma once

#include <QEvent>
#include <QString>

namespace NXLog {

// Carries one finished log line to a receiver, always posted, never sent.
class LogEvent : public QEvent
{
public:
    static constexpr QEvent::Type EventType = QEvent::Type(1001);

    explicit LogEvent(const QString &line) : QEvent(EventType), m_line(line) {}
    QString line() const { return m_line; }

private:
    QString m_line;
};

} // namespace NXLog
