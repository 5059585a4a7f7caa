#pragma once

#include "project/basenode.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QStringList>

#include <vector>

namespace OVProject {

class Label;
class Project;
class Timeline;

// The content of a project as plain values, taken on the GUI thread in one pass over the model
// so that serializing, compressing and writing can run on a worker while the user goes on coding.
// Texts are implicitly shared: taking a snapshot copies pointers, not characters, and a later
// edit of the model detaches from it.
class ProjectSnapshot
{
public:
    struct SegmentData
    {
        Id id;
        QString description;
        double start = 0.0;
        double end = 0.0;
    };
    struct LabelData
    {
        Id id;
        QString name;
        QString description;
        quint32 rgba = 0;
        char16_t key = 0;
        int sortOrder = 0;
        std::vector<SegmentData> segments;
    };
    struct UtteranceData
    {
        Id id;
        QString text;
        QString speaker;
        double start = 0.0;
        double end = 0.0;
    };
    struct GroupData
    {
        Id id;
        QString name;
        QList<Id> segmentIds;
    };
    struct TimelineData
    {
        Id id;
        QString owner;
        bool blind = false;
        std::vector<LabelData> labels;
        std::vector<UtteranceData> utterances;
        std::vector<GroupData> groups;
        QStringList hiddenSegments;
        QStringList hiddenLabels;
        QStringList hiddenUtterances;
        QStringList hiddenUtteranceUsers;
        QMap<QString, QByteArray> binaryData;
    };
    struct HeaderData
    {
        QString title;
        QString description;
        Id id;
        QList<Id> timelineIds;
        int videoId = -1;
        QString videoPath;
        bool useRelativePath = true;
        qint64 onlineId = -1;
        int projectType = 0;
        int maxTextWidth = 0;
        QString owner;
        QString offlineUser;
        double videoLength = 0.0;
    };

    ProjectSnapshot() = default;
    // The header with the timeline ids of the group (in the group's order) and every timeline.
    explicit ProjectSnapshot(const Project *project);

    static HeaderData header(const Project *project);
    static TimelineData timeline(const Timeline *timeline);
    static LabelData label(const Label *label);

    HeaderData headerData;
    std::vector<TimelineData> timelines;
};

} // namespace OVProject
