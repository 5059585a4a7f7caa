#include "timelinefixture.h"

#include "project/history.h"
#include "project/timelinegroup.h"
#include "timeline/ovsegmentlistfilter.h"
#include "timeline/ovsegmentlistmodel.h"
#include "timeline/ovtimelinehistory.h"

#include <QSignalSpy>
#include <QTest>

#include <algorithm>
#include <memory>

using namespace OVProject;

namespace {

// anna (edited) and bert (shown beside her), on a 600 s recording.
struct TwoCoders
{
    Project project;
    Timeline *anna = nullptr;
    Timeline *bert = nullptr;
    OVTimelineHistory requests;

    TwoCoders()
    {
        anna = TimelineFixture::newProject(&project);
        bert = project.createTimeline(QStringLiteral("bert"));
        project.state()->setDisplayedTimelineUsers({ QStringLiteral("anna"), QStringLiteral("bert") });
        requests.setProject(&project);
        requests.addSegment(anna->labels().at(0), 10, 20);
        requests.addSegment(anna->labels().at(0), 30, 40);
        requests.addSegment(anna->labels().at(1), 15, 25, QStringLiteral("note"));
        requests.addSegment(bert->labels().at(0), 12, 20);
        project.history()->clear();
    }
    // "A:10" is the segment of the label with key A that starts at 10 s.
    Segment *find(const QString &what) const
    {
        const QStringList parts = what.split(QLatin1Char(':'));
        const Label *l = anna->labelForKey(parts.at(0).at(0));
        for (Segment *s : l ? l->segments() : QList<Segment *>()) {
            if (s->start() == parts.at(1).toDouble())
                return s;
        }
        return nullptr;
    }
};

// "key:start-end[:description]" of every segment of the timeline, sorted.
QString state(const Timeline *t)
{
    QStringList out;
    for (const Label *l : t->labels()) {
        for (const Segment *s : l->segments()) {
            QString one = QStringLiteral("%1:%2-%3").arg(QString(l->key()), QString::number(s->start()), TimelineFixture::endText(s->end()));
            out << (s->description().isEmpty() ? one : one + QLatin1Char(':') + s->description());
        }
    }
    out.sort();
    return out.join(QLatin1Char(' '));
}

// The list shows exactly the shown timelines' segments, each once and as the model holds it, and
// knows the row of each.
QString listProblem(OVSegmentListModel &model, const Project &project)
{
    model.flush();
    QStringList expected;
    for (const Timeline *t : project.timelineGroup()->timelines()) {
        for (const Label *l : t->labels()) {
            for (const Segment *s : l->segments())
                expected << QStringLiteral("%1|%2|%3|%4|%5").arg(t->owner(), l->name(), QString::number(s->start()), TimelineFixture::endText(s->end()), s->description());
        }
    }
    QStringList shown;
    for (int r = 0; r < model.rowCount(); ++r) {
        const Segment *s = model.segment(r);
        if (!s)
            return QStringLiteral("row %1 has no segment after flush()").arg(r);
        if (model.rowOf(s) != r)
            return QStringLiteral("row %1 is found at %2").arg(r).arg(model.rowOf(s));
        auto text = [&](int c) { return model.data(model.index(r, c), OVSegmentListModel::SortRole).toString(); };
        shown << QStringLiteral("%1|%2|%3|%4|%5").arg(text(OVSegmentListModel::CoderColumn), text(OVSegmentListModel::LabelColumn))
                     .arg(QString::number(model.data(model.index(r, OVSegmentListModel::StartColumn), OVSegmentListModel::SortRole).toDouble()),
                         TimelineFixture::endText(model.data(model.index(r, OVSegmentListModel::EndColumn), OVSegmentListModel::SortRole).toDouble()),
                         text(OVSegmentListModel::DescriptionColumn));
    }
    expected.sort();
    shown.sort();
    if (expected != shown)
        return QStringLiteral("list:\n  %1\nmodel:\n  %2").arg(shown.join(QStringLiteral("\n  ")), expected.join(QStringLiteral("\n  ")));
    return QString();
}

// Proxy rows are the source's live rows, in ascending order of the sort column's raw value.
QString proxyProblem(const OVSegmentListFilter &filter, int expectedRows)
{
    if (filter.rowCount() != expectedRows)
        return QStringLiteral("%1 rows shown, %2 expected").arg(filter.rowCount()).arg(expectedRows);
    double last = -1e300;
    for (int r = 0; r < filter.rowCount(); ++r) {
        const double v = filter.index(r, OVSegmentListModel::StartColumn).data(OVSegmentListModel::SortRole).toDouble();
        if (v < last)
            return QStringLiteral("row %1 starts at %2, before the row above (%3)").arg(r).arg(v).arg(last);
        last = v;
    }
    return QString();
}

} // namespace

class TstSegmentList : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void followsEditsUndoRedo_data();
    void followsEditsUndoRedo();
    void refusedEdits_data();
    void refusedEdits();
    void sortedFilteredRowsAfterChanges();
    void bulkChangesSettle_data();
    void bulkChangesSettle();
};

void TstSegmentList::followsEditsUndoRedo_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("expected");

    // Made in the list.
    QTest::newRow("list: start as text") << "start" << "A:10" << QVariant("00:00:05.000") << "A:30-40 A:5-20 B:15-25:note";
    QTest::newRow("list: end in seconds") << "end" << "A:30" << QVariant("45.5") << "A:10-20 A:30-45.5 B:15-25:note";
    QTest::newRow("list: end as a number") << "end" << "A:30" << QVariant(41.0) << "A:10-20 A:30-41 B:15-25:note";
    QTest::newRow("list: duration") << "duration" << "B:15" << QVariant("2.5") << "A:10-20 A:30-40 B:15-17.5:note";
    QTest::newRow("list: description") << "description" << "A:10" << QVariant("hi") << "A:10-20:hi A:30-40 B:15-25:note";
    QTest::newRow("list: label") << "label" << "A:10" << QVariant("Label 3") << "A:30-40 B:15-25:note C:10-20";
    QTest::newRow("list: key, lower case") << "key" << "A:30" << QVariant("d") << "A:10-20 B:15-25:note D:30-40";
    QTest::newRow("list: delete") << "delete" << "B:15" << QVariant() << "A:10-20 A:30-40";
    // Made on the timeline.
    QTest::newRow("timeline: add") << "add" << "C:0" << QVariant() << "A:10-20 A:30-40 B:15-25:note C:50-60";
    QTest::newRow("timeline: edit") << "edit" << "A:30" << QVariant() << "A:10-20 A:31-32:x B:15-25:note";
    QTest::newRow("timeline: move") << "move" << "B:15" << QVariant() << "A:10-20 A:15-25:note A:30-40";
    QTest::newRow("timeline: delete") << "remove" << "A:10" << QVariant() << "A:30-40 B:15-25:note";
    QTest::newRow("timeline: delete label") << "removeLabel" << "A:10" << QVariant() << "B:15-25:note";
}

void TstSegmentList::followsEditsUndoRedo()
{
    QFETCH(QString, action);
    QFETCH(QString, target);
    QFETCH(QVariant, value);
    QFETCH(QString, expected);

    TwoCoders f;
    OVSegmentListModel model;
    model.setProject(&f.project);
    QCOMPARE(listProblem(model, f.project), QString());
    QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
    const QString before = state(f.anna);
    Segment *s = f.find(target);
    const int row = s ? model.rowOf(s) : -1;
    auto cell = [&](int column) { return model.index(row, column); };

    bool ok = false;
    if (action == QLatin1String("start"))
        ok = model.setData(cell(OVSegmentListModel::StartColumn), value);
    else if (action == QLatin1String("end"))
        ok = model.setData(cell(OVSegmentListModel::EndColumn), value);
    else if (action == QLatin1String("duration"))
        ok = model.setData(cell(OVSegmentListModel::DurationColumn), value);
    else if (action == QLatin1String("description"))
        ok = model.setData(cell(OVSegmentListModel::DescriptionColumn), value);
    else if (action == QLatin1String("label"))
        ok = model.setData(cell(OVSegmentListModel::LabelColumn), value);
    else if (action == QLatin1String("key"))
        ok = model.setData(cell(OVSegmentListModel::KeyColumn), value);
    else if (action == QLatin1String("delete"))
        ok = model.removeSegments({ row });
    else if (action == QLatin1String("add"))
        ok = f.requests.addSegment(f.anna->labels().at(2), 50, 60) != nullptr;
    else if (action == QLatin1String("edit"))
        ok = f.requests.editSegment(s, 31, 32, QStringLiteral("x"));
    else if (action == QLatin1String("move"))
        ok = f.requests.moveSegments({ s }, f.anna->labels().at(0));
    else if (action == QLatin1String("remove"))
        ok = f.requests.removeSegments({ s });
    else if (action == QLatin1String("removeLabel"))
        ok = f.requests.removeLabel(f.anna->labels().at(0));
    QVERIFY(ok);
    QCOMPARE(f.project.history()->count(), 1);
    QCOMPARE(state(f.anna), expected);
    QCOMPARE(listProblem(model, f.project), QString());
    if (action == QLatin1String("label") || action == QLatin1String("key"))
        QCOMPARE(model.rowOf(s), row); // a segment that changes label keeps its row

    QVERIFY(f.project.history()->undo());
    QCOMPARE(state(f.anna), before);
    QCOMPARE(listProblem(model, f.project), QString());
    QVERIFY(f.project.history()->redo());
    QCOMPARE(state(f.anna), expected);
    QCOMPARE(listProblem(model, f.project), QString());
    // One change is followed row by row, never by starting over.
    QCOMPARE(resets.count(), 0);
}

void TstSegmentList::refusedEdits_data()
{
    QTest::addColumn<QString>("coder");
    QTest::addColumn<int>("column");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("end before start") << "anna" << int(OVSegmentListModel::EndColumn) << QVariant("00:00:05");
    QTest::newRow("start after end") << "anna" << int(OVSegmentListModel::StartColumn) << QVariant(21.0);
    QTest::newRow("time that is no time") << "anna" << int(OVSegmentListModel::StartColumn) << QVariant("soon");
    QTest::newRow("negative duration") << "anna" << int(OVSegmentListModel::DurationColumn) << QVariant("-1");
    QTest::newRow("no such label") << "anna" << int(OVSegmentListModel::LabelColumn) << QVariant("Label 9");
    QTest::newRow("no label has the key") << "anna" << int(OVSegmentListModel::KeyColumn) << QVariant("Q");
    QTest::newRow("coder") << "anna" << int(OVSegmentListModel::CoderColumn) << QVariant("bert");
    QTest::newRow("another coder's segment") << "bert" << int(OVSegmentListModel::DescriptionColumn) << QVariant("mine now");
}

void TstSegmentList::refusedEdits()
{
    QFETCH(QString, coder);
    QFETCH(int, column);
    QFETCH(QVariant, value);

    TwoCoders f;
    OVSegmentListModel model;
    model.setProject(&f.project);
    const Timeline *t = coder == QLatin1String("anna") ? f.anna : f.bert;
    Segment *s = t->labels().at(0)->segments().first(); // 10-20 or 12-20
    const QString before = state(f.anna) + QLatin1Char('/') + state(f.bert);
    QVERIFY(!model.setData(model.index(model.rowOf(s), column), value));
    QCOMPARE(state(f.anna) + QLatin1Char('/') + state(f.bert), before);
    QCOMPARE(f.project.history()->count(), 0);
}

void TstSegmentList::sortedFilteredRowsAfterChanges()
{
    TwoCoders f;
    OVSegmentListModel model;
    model.setProject(&f.project);
    OVSegmentListFilter filter;
    filter.setSourceModel(&model);
    filter.sort(OVSegmentListModel::StartColumn);
    auto segmentAt = [&](int proxyRow) { return model.segment(filter.mapToSource(filter.index(proxyRow, 0)).row()); };
    QCOMPARE(proxyProblem(filter, 4), QString());

    // anna's segments by start: 10, 15, 30. Moving the last to the front re-sorts it there.
    filter.setCoder(f.anna->id());
    Segment *late = f.find(QStringLiteral("A:30"));
    QVERIFY(f.requests.editSegment(late, 5, 8, QString()));
    QCOMPARE(proxyProblem(filter, 3), QString());
    QCOMPARE(segmentAt(0), late);

    // An edit through the sorted and filtered rows reaches the segment shown in that row.
    QVERIFY(filter.setData(filter.index(0, OVSegmentListModel::DescriptionColumn), QStringLiteral("first")));
    QCOMPARE(late->description(), QStringLiteral("first"));

    // A new segment is shown once it is settled, where its start puts it, and only if it passes.
    Segment *added = f.requests.addSegment(f.anna->labels().at(2), 12, 13);
    f.requests.addSegment(f.bert->labels().at(0), 1, 2);
    model.flush();
    QCOMPARE(proxyProblem(filter, 4), QString());
    QCOMPARE(segmentAt(2), added);

    filter.setLabel(QStringLiteral("Label 1"));
    QCOMPARE(proxyProblem(filter, 2), QString());
    filter.setCoder(QString());
    QCOMPARE(proxyProblem(filter, 4), QString()); // bert's two segments of label 1 as well
    QCOMPARE(segmentAt(0)->start(), 1.0);
    // A label change takes a segment out of a label filter.
    QVERIFY(model.setData(model.index(model.rowOf(late), OVSegmentListModel::LabelColumn), QStringLiteral("Label 2")));
    QCOMPARE(proxyProblem(filter, 3), QString());

    filter.setLabel(QString());
    filter.setText(QStringLiteral("NOTE"));
    QCOMPARE(proxyProblem(filter, 1), QString());
    QCOMPARE(segmentAt(0), f.find(QStringLiteral("B:15")));

    // Undo takes the segments away again.
    filter.setText(QString());
    while (f.project.history()->canUndo())
        QVERIFY(f.project.history()->undo());
    model.flush();
    QCOMPARE(proxyProblem(filter, 4), QString());
    QCOMPARE(segmentAt(0)->start(), 10.0);
}

void TstSegmentList::bulkChangesSettle_data()
{
    QTest::addColumn<int>("count");
    QTest::newRow("a few, row by row") << 40;
    QTest::newRow("thousands, at once") << 3000;
}

void TstSegmentList::bulkChangesSettle()
{
    QFETCH(int, count);
    auto f = std::make_unique<TwoCoders>();
    OVSegmentListModel model;
    model.setProject(&f->project);
    OVSegmentListFilter filter;
    filter.setSourceModel(&model);
    filter.sort(OVSegmentListModel::StartColumn);

    f->requests.beginGesture(QStringLiteral("many"));
    QList<Segment *> added;
    for (int i = 0; i < count; ++i)
        added << f->requests.addSegment(f->anna->labels().at(i % 4), 100 + i, 100.5 + i);
    f->requests.endGesture();
    QCOMPARE(listProblem(model, f->project), QString());
    QCOMPARE(proxyProblem(filter, count + 4), QString());

    // Every other one: as many removed ranges as segments.
    QList<Segment *> doomed;
    for (int i = 0; i < count; i += 2)
        doomed << added.at(i);
    QVERIFY(f->requests.removeSegments(doomed));
    QCOMPARE(listProblem(model, f->project), QString());
    QCOMPARE(proxyProblem(filter, count - int(doomed.size()) + 4), QString());

    for (int i = 0; i < 2; ++i) {
        QVERIFY(f->project.history()->undo());
        QCOMPARE(listProblem(model, f->project), QString());
    }
    QCOMPARE(proxyProblem(filter, 4), QString());
    QVERIFY(f->project.history()->redo());
    model.flush();
    QCOMPARE(proxyProblem(filter, count + 4), QString());

    // Changes settle by themselves once the event loop runs.
    QVERIFY(f->project.history()->redo());
    QTRY_COMPARE(model.rowCount(), count - int(doomed.size()) + 4);

    // Nodes deleted behind the model's back leave no row that reads them.
    delete f->bert;
    QCOMPARE(model.liveRowCount(), count - int(doomed.size()) + 3);
    f.reset();
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(filter.rowCount(), 0);
}

QTEST_MAIN(TstSegmentList)
#include "tst_segmentlist.moc"
