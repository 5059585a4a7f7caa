#pragma once

#include "project/basenode.h"

namespace OVProject {

// One transcribed utterance: who said what, when.
class Utterance : public BaseNode
{
    Q_OBJECT
public:
    explicit Utterance(const Id &id = Id(), QObject *parent = nullptr);

    int nodeType() const override { return UtteranceType; }
    // Copies text, speaker and times; the id stays.
    bool copyFrom(const BaseNode *other) override;
    QString contentHash() const override;

    QString text() const { return m_text; }
    QString speaker() const { return m_speaker; }
    double startTime() const { return m_startTime; }
    double endTime() const { return m_endTime; }

    void setText(const QString &text);
    void setSpeaker(const QString &speaker);
    void setStartTime(double t);
    void setEndTime(double t);

Q_SIGNALS:
    void changed();

private:
    QString m_text;
    QString m_speaker;
    double m_startTime = 0.0;
    double m_endTime = 0.0;
};

} // namespace OVProject
