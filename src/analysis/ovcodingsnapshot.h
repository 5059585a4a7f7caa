#pragma once

#include <QChar>
#include <QList>
#include <QString>
#include <QStringList>

namespace OVProject {
class Project;
}

// The coding of one project as plain values: what statistics, agreement and exports read. Taken
// on the GUI thread in one pass, it can then be worked on by any thread while the user codes on.
class OVCodingSnapshot
{
public:
    struct Segment
    {
        QString id;
        double start = 0.0;
        double end = 0.0;
        QString description;
        bool isOpen() const;
    };
    struct Label
    {
        QString id;
        QString name;
        QChar key;
        // The label's colour as ARGB (QColor::rgba()); plots draw the label in it.
        quint32 color = 0;
        QList<Segment> segments;
    };
    struct Group
    {
        QString id;
        QString name;
        QStringList segmentIds;
    };
    struct Utterance
    {
        QString id;
        QString speaker;
        QString text;
        double start = 0.0;
        double end = 0.0;
    };
    // One timeline: the coding of one user.
    struct Coder
    {
        QString timelineId;
        QString name;
        QList<Label> labels;
        QList<Group> groups;
        QList<Utterance> utterances;
    };

    QString projectName;
    double videoLength = 0.0;
    QList<Coder> coders;

    static OVCodingSnapshot fromProject(const OVProject::Project &project, const QString &projectName);

    // The coder whose name (timeline owner) or timeline id is `nameOrId`; null if none.
    const Coder *coder(const QString &nameOrId) const;
    // The end of the observed time when no window is given: the recording's length, or the last
    // closed segment or utterance end when the project has no recording.
    double observedEnd() const;
    // Names of the groups of `coder` that hold each segment id, joined by "; ".
    static QString groupsOf(const Coder &coder, const QString &segmentId);
};
