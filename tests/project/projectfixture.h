#pragma once

#include <QString>

namespace OVProject {
class Project;
class Timeline;
} // namespace OVProject

// Test helpers shared by the project tests.
namespace Fixture {

// Fills `project` with every kind of content: header fields, two timelines with labels,
// segments (one open, one at 12.3456 s), utterances, groups, hidden lists and binary data.
void fillProject(OVProject::Project *project);

// Empty when both projects hold the same content (times compared to the millisecond), else a
// description of the first difference.
QString difference(const OVProject::Project *a, const OVProject::Project *b);
QString difference(const OVProject::Timeline *a, const OVProject::Timeline *b);

} // namespace Fixture
