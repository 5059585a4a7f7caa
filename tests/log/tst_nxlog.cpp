#include "log/nxlog.h"
#include "log/nxlogevent.h"
#include "log/nxlogwidget.h"
#include "log/ovloglogging.h"
#include "log/ovtimeformat.h"

#include <QPlainTextEdit>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <atomic>

namespace {

class CountingReceiver : public QObject
{
public:
    std::atomic<int> *counter;
    explicit CountingReceiver(std::atomic<int> *c) : counter(c) {}
    QStringList lines;
    bool event(QEvent *e) override
    {
        if (e->type() == NXLog::LogEvent::EventType) {
            ++*counter;
            lines << static_cast<NXLog::LogEvent *>(e)->line();
            return true;
        }
        return QObject::event(e);
    }
};

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace

class TestNXLog : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanup() { NXLog::uninstall(); }

    void formatLine_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("depth");
        QTest::addColumn<QString>("expected");
        const QString stamp = QStringLiteral("[010216 13:05:09.042] ");
        QTest::newRow("warning") << int(QtWarningMsg) << "x" << 0 << stamp + "Warning: x\n";
        QTest::newRow("debug has no prefix") << int(QtDebugMsg) << "x" << 0 << stamp + "x\n";
        QTest::newRow("critical") << int(QtCriticalMsg) << "y z" << 0 << stamp + "Critical: y z\n";
        QTest::newRow("fatal") << int(QtFatalMsg) << "boom" << 0 << stamp + "Fatal: boom\n";
        QTest::newRow("nested twice") << int(QtDebugMsg) << "in" << 2 << stamp + "    in\n";
        QTest::newRow("utf8 text") << int(QtDebugMsg) << QString::fromUtf8("Zoë ✓") << 0
                                   << stamp + QString::fromUtf8("Zoë ✓\n");
    }
    void formatLine()
    {
        QFETCH(int, type);
        QFETCH(QString, message);
        QFETCH(int, depth);
        QFETCH(QString, expected);
        const QDateTime when(QDate(2016, 2, 1), QTime(13, 5, 9, 42));
        QCOMPARE(NXLog::formatLine(QtMsgType(type), message, when, depth), expected);
    }

    void writesUtf8LinesAndStripsLevelTags()
    {
        QTemporaryDir dir;
        QVERIFY(NXLog::install(dir.path()));
        QCOMPARE(NXLog::logFilePath(), dir.path() + "/main.log");
        qWarning().noquote() << QString::fromUtf8("Zoë");
        qDebug().noquote() << "0|tagged";
        NXLog::setLevel(3);
        qDebug().noquote() << "5|too detailed";
        NXLog::setLevel(9);
        NXLog::uninstall();
        const QString text = QString::fromUtf8(readAll(dir.path() + "/main.log"));
        const QStringList lines = text.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2);
        QVERIFY(lines[0].endsWith(QString::fromUtf8("] Warning: Zoë")));
        QVERIFY(lines[1].endsWith("] tagged"));
        QVERIFY(QRegularExpression(R"(^\[\d{6} \d\d:\d\d:\d\d\.\d{3}\] )").match(lines[0]).hasMatch());
    }

    // An area's debug output stays out of the log until it is switched on; what goes in has the
    // log's own format, whatever category it came from.
    void categoryDebugOffUntilSwitchedOn()
    {
        QTemporaryDir dir;
        QVERIFY(NXLog::install(dir.path()));
        qCDebug(lcLog) << "hidden";
        qCInfo(lcLog) << "told";
        qCWarning(lcLog) << "warned";
        QLoggingCategory::setFilterRules(QStringLiteral("kavot.log.debug=true"));
        qCDebug(lcLog) << "shown";
        QLoggingCategory::setFilterRules(QString());
        qCDebug(lcLog) << "hidden again";
        NXLog::uninstall();
        QStringList lines = QString::fromUtf8(readAll(dir.path() + "/main.log")).split('\n', Qt::SkipEmptyParts);
        for (QString &line : lines)
            line = line.mid(line.indexOf("] ") + 2);
        QCOMPARE(lines, QStringList({ "told", "Warning: warned", "shown" }));
    }

    void trimsOversizedLogAtInstall()
    {
        QTemporaryDir dir;
        const qint64 limit = NXLog::DefaultSizeLimit;
        QByteArray old(6 * 1024 * 1024, 'a');
        // A recognisable tail: the bytes that must survive.
        for (qint64 i = old.size() - limit; i < old.size(); i += 4096)
            old[i] = 'T';
        old[old.size() - limit - 1] = 'X';
        {
            QFile f(dir.path() + "/main.log");
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(old);
        }
        QVERIFY(NXLog::install(dir.path(), "main", limit));
        qDebug().noquote() << "first new line";
        NXLog::uninstall();
        const QByteArray now = readAll(dir.path() + "/main.log");
        QCOMPARE(now.left(limit), old.right(limit));
        const QByteArray added = now.mid(limit);
        QVERIFY(added.contains("Trimmed size: 6291456 to 5242880"));
        QVERIFY(added.contains("first new line"));
        QVERIFY(added.indexOf("Trimmed size") < added.indexOf("first new line"));
    }

    // Lines reach receivers only as posted events, never during the call that logged, and also
    // when the log file could not be opened.
    void receiversGetLinesByPostedEvents_data()
    {
        QTest::addColumn<bool>("fileOpens");
        QTest::newRow("log file open") << true;
        QTest::newRow("log file unopenable") << false;
    }
    void receiversGetLinesByPostedEvents()
    {
        QFETCH(bool, fileOpens);
        QTemporaryDir dir;
        // A folder where the file should be: the open fails.
        if (!fileOpens)
            QVERIFY(QDir(dir.path()).mkpath("main.log"));
        QCOMPARE(NXLog::install(dir.path()), fileOpens);
        std::atomic<int> count { 0 };
        CountingReceiver r(&count);
        NXLog::addReceiver(&r);
        qDebug() << "delivered";
        QCOMPARE(count.load(), 0);
        QCoreApplication::sendPostedEvents(&r);
        QCOMPARE(count.load(), 1);
        QVERIFY(r.lines.first().endsWith("delivered\n"));
        NXLog::removeReceiver(&r);
    }

    void receiverDestroyedWhileLinesArePosted()
    {
        QTemporaryDir dir;
        QVERIFY(NXLog::install(dir.path()));
        std::atomic<int> count { 0 };
        std::atomic<bool> stop { false };
        QList<QThread *> writers;
        for (int t = 0; t < 3; ++t) {
            writers << QThread::create([&stop] {
                int n = 0;
                while (!stop.load())
                    qDebug() << "writer line" << n++;
            });
            writers.last()->start();
        }
        for (int round = 0; round < 50; ++round) {
            auto *r = new CountingReceiver(&count);
            NXLog::addReceiver(r);
            QThread::usleep(200);
            delete r; // lines may still be queued for it
            QCOMPARE(NXLog::receiverCount(), 0);
        }
        const int before = count.load();
        QCoreApplication::processEvents();
        QCOMPARE(count.load(), before); // nothing reached a dead receiver
        stop = true;
        for (QThread *t : writers) {
            QVERIFY(t->wait(5000));
            delete t;
        }
    }

    void logWidgetAppendsLines()
    {
        QTemporaryDir dir;
        QVERIFY(NXLog::install(dir.path()));
        NXLogWidget widget;
        qWarning().noquote() << "shown in the view";
        QTRY_VERIFY(widget.findChild<QPlainTextEdit *>("pt_log")->toPlainText().contains("Warning: shown in the view"));
    }

    void timeFormat_data()
    {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<int>("digits");
        QTest::addColumn<QString>("expected");
        QTest::newRow("zero") << 0.0 << 3 << "00:00:00.000";
        QTest::newRow("minutes") << 62.5 << 3 << "00:01:02.500";
        QTest::newRow("hours") << 3723.04 << 2 << "01:02:03.04";
        QTest::newRow("carry on rounding") << 59.9996 << 3 << "00:01:00.000";
        QTest::newRow("negative") << -1.5 << 1 << "-00:00:01.5";
        QTest::newRow("negative rounds to zero") << -0.0001 << 3 << "00:00:00.000";
        QTest::newRow("no fraction") << 7199.6 << 0 << "02:00:00";
        QTest::newRow("long video") << 100 * 3600.0 << 0 << "100:00:00";
    }
    void timeFormat()
    {
        QFETCH(double, seconds);
        QFETCH(int, digits);
        QFETCH(QString, expected);
        QCOMPARE(OVTimeFormat::format(seconds, digits), expected);
        double back = 0;
        QVERIFY(OVTimeFormat::parse(expected, &back));
        QVERIFY(qAbs(back - seconds) <= 0.5 * std::pow(10.0, -digits) + 1e-9);
    }

    void timeParseRejects_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << "";
        QTest::newRow("letters") << "ab:cd";
        QTest::newRow("seconds over 59") << "00:00:61";
        QTest::newRow("minutes over 59") << "00:61:00";
        QTest::newRow("too many parts") << "1:2:3:4";
    }
    void timeParseRejects()
    {
        QFETCH(QString, text);
        double v = 0;
        QVERIFY(!OVTimeFormat::parse(text, &v));
    }
};

QTEST_MAIN(TestNXLog)
#include "tst_nxlog.moc"
