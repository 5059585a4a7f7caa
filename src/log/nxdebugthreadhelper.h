#pragma once

#include <QByteArray>
#include <QEvent>
#include <QObject>

// Receives debug payloads posted from other threads and hands them on in its own thread.
class NXDebugThreadHelper : public QObject
{
    Q_OBJECT
public:
    class DebugEvent : public QEvent
    {
    public:
        static constexpr QEvent::Type EventType = QEvent::Type(1002);
        explicit DebugEvent(const QByteArray &data) : QEvent(EventType), m_data(data) {}
        QByteArray data() const { return m_data; }

    private:
        QByteArray m_data;
    };

    using QObject::QObject;

    // Thread-safe: queues `data` for delivery through dataReceived() in this object's thread.
    void post(const QByteArray &data);

Q_SIGNALS:
    void dataReceived(const QByteArray &data);

protected:
    bool event(QEvent *event) override;
};
