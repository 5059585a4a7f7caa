#pragma once

#include "log/overror.h"

#include <QObject>

namespace OVProject {

class Project;

// Where a project lies (a local file, a web service): saves a project with its timelines and
// loads one into a target Project. A failed load leaves the target as it was.
class StorageInterface : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    virtual OV::Error saveProject(Project *project) = 0;
    virtual OV::Error loadProject(Project *target) = 0;
};

} // namespace OVProject
