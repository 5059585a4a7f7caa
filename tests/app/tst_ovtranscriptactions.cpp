#include "app/ovactionregistry.h"
#include "app/ovtranscriptactions.h"
#include "project/history.h"
#include "project/project.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/utterance.h"

#include <QApplication>
#include <QFile>
#include <QMainWindow>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace OVProject;

// The transcript's file commands as the menus run them: out to a file, cleared, back in, and a
// damaged file refused with a message that names it.
class TstOVTranscriptActions : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void exportClearImport_data();
    void exportClearImport();
    void damagedFileNamedAndNothingChanged();

private:
    // Closes the next message box and returns its text through `text`.
    static void closeNextMessageBox(QString *text)
    {
        QTimer::singleShot(50, [text] {
            if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
                *text = box->text();
                box->close();
            } else {
                closeNextMessageBox(text);
            }
        });
    }
};

void TstOVTranscriptActions::exportClearImport_data()
{
    QTest::addColumn<QString>("file");
    QTest::newRow("csv") << "t.csv";
    QTest::newRow("vtt") << "t.vtt";
    QTest::newRow("srt") << "t.srt";
}

void TstOVTranscriptActions::exportClearImport()
{
    QFETCH(QString, file);
    QTemporaryDir dir;
    QMainWindow window;
    OVActionRegistry actions;
    OVTranscriptActions transcript(&window, &actions);
    QVERIFY(!actions.action(OVActionRegistry::ImportTranscript)->isEnabled());
    Project p;
    Timeline *t = p.startNew(QStringLiteral("alice"));
    p.state()->setActiveUser(QStringLiteral("alice"));
    auto *u = new Utterance(BaseNode::newId());
    u->setSpeaker(QStringLiteral("Ana"));
    u->setText(QStringLiteral("hello, \"world\""));
    u->setStartTime(1.5);
    u->setEndTime(2.25);
    t->addUtterance(u);
    const Id id = u->id();
    transcript.setProject(&p, QString());
    QVERIFY(actions.action(OVActionRegistry::ImportTranscript)->isEnabled());

    const QString path = dir.filePath(file);
    transcript.exportTranscriptTo(path);
    QVERIFY(QFile::exists(path));
    actions.action(OVActionRegistry::ClearTranscript)->trigger();
    QVERIFY(t->utterances().isEmpty());
    transcript.importTranscriptFrom(path);
    QCOMPARE(t->utterances().size(), 1);
    const Utterance *back = t->utterances().first();
    QCOMPARE(back->speaker(), QStringLiteral("Ana"));
    QCOMPARE(back->text(), QStringLiteral("hello, \"world\""));
    QCOMPARE(back->startTime(), 1.5);
    QCOMPARE(back->endTime(), 2.25);
    // Import and clear are steps of the one history.
    QVERIFY(p.history()->undo());
    QVERIFY(t->utterances().isEmpty());
    QVERIFY(p.history()->undo());
    QCOMPARE(t->utterances().size(), 1);
    QCOMPARE(t->utterances().first()->id(), id);
}

void TstOVTranscriptActions::damagedFileNamedAndNothingChanged()
{
    QTemporaryDir dir;
    QMainWindow window;
    OVActionRegistry actions;
    OVTranscriptActions transcript(&window, &actions);
    Project p;
    Timeline *t = p.startNew(QStringLiteral("alice"));
    transcript.setProject(&p, QString());
    const QString path = dir.filePath(QStringLiteral("broken.srt"));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("1\n00:00:01,000 --> 00:00:02,000\nok\n\n2\nnot a timing\nx\n");
    f.close();
    const int steps = p.history()->count();
    QString message;
    closeNextMessageBox(&message);
    transcript.importTranscriptFrom(path);
    QVERIFY2(message.contains(QStringLiteral("broken.srt")) && message.contains(QStringLiteral("line 6")), qPrintable(message));
    QVERIFY(t->utterances().isEmpty());
    QCOMPARE(p.history()->count(), steps);
}

QTEST_MAIN(TstOVTranscriptActions)
#include "tst_ovtranscriptactions.moc"
