#include "widgets/ovwaitwidgetwithprogress.h"

#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

class TestOVWaitWidgetWithProgress : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sequence_data()
    {
        // Steps: "start:<text>", "stage:<text>", "cancel", "end".
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QString>("text"); // shown after the steps
        QTest::addColumn<bool>("waiting");
        QTest::addColumn<int>("started");
        QTest::addColumn<int>("finished");
        QTest::addColumn<int>("cancels");

        QTest::newRow("stages follow each other") << QStringList { "start:Adding audio track", "stage:Creating backup" }
                                                  << "Creating backup" << true << 1 << 0 << 0;
        // The work reports its stages until it notices; the user must still read that it is stopping.
        QTest::newRow("a stage after cancel does not hide it")
            << QStringList { "start:Synchronizing tracks...", "cancel", "stage:Refining the sync points..." }
            << "Canceled by the user" << true << 1 << 0 << 1;
        QTest::newRow("a second cancel is not sent")
            << QStringList { "start:x", "cancel", "cancel" } << "Canceled by the user" << true << 1 << 0 << 1;
        QTest::newRow("a new wait can be cancelled again")
            << QStringList { "start:x", "cancel", "end", "start:y", "stage:z", "cancel" } << "Canceled by the user" << true
            << 2 << 1 << 2;
        QTest::newRow("ending twice finishes once") << QStringList { "start:x", "end", "end" } << "x" << false << 1 << 1 << 0;
    }

    void sequence()
    {
        QFETCH(QStringList, steps);
        QFETCH(QString, text);
        QFETCH(bool, waiting);
        QFETCH(int, started);
        QFETCH(int, finished);
        QFETCH(int, cancels);

        QWidget parent;
        parent.resize(300, 200);
        OVWaitWidgetWithProgress wait(&parent);
        QSignalSpy startedSpy(&wait, &OVWaitWidgetWithProgress::waitStarted);
        QSignalSpy finishedSpy(&wait, &OVWaitWidgetWithProgress::waitFinished);
        QSignalSpy cancelSpy(&wait, &OVWaitWidgetWithProgress::cancelClicked);
        auto *button = wait.findChild<QPushButton *>(QStringLiteral("btn_waitCancel"));
        QVERIFY(button);
        for (const QString &step : steps) {
            if (step.startsWith(QLatin1String("start:")))
                wait.startWait(step.mid(6));
            else if (step.startsWith(QLatin1String("stage:")))
                wait.setText(step.mid(6));
            else if (step == QLatin1String("cancel"))
                button->click();
            else
                wait.endWait();
        }
        QCOMPARE(wait.text(), text);
        QCOMPARE(wait.isWaiting(), waiting);
        QCOMPARE(startedSpy.size(), started);
        QCOMPARE(finishedSpy.size(), finished);
        QCOMPARE(cancelSpy.size(), cancels);
        if (waiting)
            QCOMPARE(wait.geometry(), parent.rect());
    }
};

QTEST_MAIN(TestOVWaitWidgetWithProgress)
#include "tst_ovwaitwidgetwithprogress.moc"
