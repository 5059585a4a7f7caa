#pragma once

#include <QByteArray>
#include <QList>

namespace OVProject {

class Label;
class Project;
class Timeline;

// Turns model objects into documents and back. Readers return false and leave the target as it
// was when the document is damaged; they never throw.
class Serializer
{
public:
    virtual ~Serializer() = default;

    virtual QByteArray writeProject(const Project *project) const = 0;
    virtual bool readProject(const QByteArray &data, Project *project) const = 0;
    virtual QByteArray writeTimeline(const Timeline *timeline) const = 0;
    virtual bool readTimeline(const QByteArray &data, Timeline *timeline) const = 0;
    virtual QByteArray writeLabelSet(const QList<Label *> &labels) const = 0;
    // On success `labels` receives new labels (with their segments) that the caller owns.
    virtual bool readLabelSet(const QByteArray &data, QList<Label *> *labels) const = 0;
};

} // namespace OVProject
