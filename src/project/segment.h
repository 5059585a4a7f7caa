#pragma once

#include "project/basenode.h"

namespace OVProject {

class Label;

// One coded event of a label. A segment whose end is exactly OpenEnd is still open (being coded).
class Segment : public BaseNode
{
    Q_OBJECT
public:
    static constexpr double OpenEnd = 2147483647.0;

    explicit Segment(const Id &id = Id(), QObject *parent = nullptr);
    Segment(double start, double end, const Id &id = Id(), QObject *parent = nullptr);
    ~Segment() override;

    int nodeType() const override { return SegmentType; }
    bool copyFrom(const BaseNode *other) override;
    QString contentHash() const override;

    double start() const { return m_start; }
    double end() const { return m_end; }
    bool isOpen() const { return m_end == OpenEnd; }
    QString description() const { return m_description; }
    // Second text field: takes part in copies and hashes but is not written to project files.
    QString text() const { return m_text; }

    void setStart(double start);
    void setEnd(double end);
    void setTimes(double start, double end);
    void setDescription(const QString &description);
    void setText(const QString &text);

    // The label that holds this segment, or null.
    Label *label() const { return m_label; }

Q_SIGNALS:
    void changed();

protected:
    void idChanged(const Id &oldId) override;

private:
    friend class Label;
    void applyTimes(double start, double end);

    double m_start = 0.0;
    double m_end = 0.0;
    QString m_description;
    QString m_text;
    Label *m_label = nullptr;
};

} // namespace OVProject
