#include "transcript/ovtextgrid.h"

#include "project/ovreadbudget.h"

#include <QLocale>
#include <QMap>
#include <QObject>

#include <algorithm>
#include <cmath>

namespace {

QString quoted(const QString &text)
{
    QString t = text;
    t.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + t + QLatin1Char('"');
}

QString number(double value) { return QString::number(value, 'g', 15); }

// The values of a TextGrid in file order: numbers, quoted texts and <flags>. Everything else
// (names before "=", "item [2]:", comments after "!") is what tells the long form from the short
// one and is passed over.
class Tokens
{
public:
    enum Type { Number, Text, Flag, End };

    explicit Tokens(const QString &text)
        : m_text(text)
    {
    }

    int line() const { return m_tokenLine; }
    qsizetype position() const { return m_pos; }
    qsizetype size() const { return m_text.size(); }

    Type next(QString *value)
    {
        const qsizetype n = m_text.size();
        while (m_pos < n) {
            const QChar c = m_text.at(m_pos);
            if (c == QLatin1Char('\n')) {
                ++m_line;
                ++m_pos;
            } else if (c == QLatin1Char('!')) {
                while (m_pos < n && m_text.at(m_pos) != QLatin1Char('\n'))
                    ++m_pos;
            } else if (c == QLatin1Char('[')) {
                while (m_pos < n && m_text.at(m_pos) != QLatin1Char(']') && m_text.at(m_pos) != QLatin1Char('\n'))
                    ++m_pos;
            } else if (c == QLatin1Char('"')) {
                m_tokenLine = m_line;
                return text(value);
            } else if (c == QLatin1Char('<')) {
                m_tokenLine = m_line;
                const qsizetype close = m_text.indexOf(QLatin1Char('>'), m_pos);
                if (close < 0)
                    return End;
                *value = m_text.mid(m_pos + 1, close - m_pos - 1);
                m_pos = close + 1;
                return Flag;
            } else if (c.isDigit() || ((c == QLatin1Char('-') || c == QLatin1Char('+') || c == QLatin1Char('.')) && m_pos + 1 < n && (m_text.at(m_pos + 1).isDigit() || m_text.at(m_pos + 1) == QLatin1Char('.')))) {
                m_tokenLine = m_line;
                const qsizetype from = m_pos;
                while (m_pos < n && !m_text.at(m_pos).isSpace())
                    ++m_pos;
                *value = m_text.mid(from, m_pos - from);
                return Number;
            } else if (c.isLetter() || c == QLatin1Char('_')) {
                // A name ("xmin", "intervals:", "tiers?"): skip it and what punctuates it.
                while (m_pos < n && (m_text.at(m_pos).isLetterOrNumber() || m_text.at(m_pos) == QLatin1Char('_')))
                    ++m_pos;
            } else {
                ++m_pos;
            }
        }
        // The end is reported at the last value read: trailing blank lines are not where it broke.
        return End;
    }

private:
    Type text(QString *value)
    {
        value->clear();
        ++m_pos;
        const qsizetype n = m_text.size();
        while (m_pos < n) {
            const QChar c = m_text.at(m_pos++);
            if (c == QLatin1Char('"')) {
                if (m_pos < n && m_text.at(m_pos) == QLatin1Char('"')) {
                    value->append(c);
                    ++m_pos;
                    continue;
                }
                return Text;
            }
            if (c == QLatin1Char('\n'))
                ++m_line;
            if (value->size() >= OVTranscriptInput::MaxFieldChars)
                return End;
            value->append(c);
        }
        return End;
    }

    const QString &m_text;
    qsizetype m_pos = 0;
    int m_line = 1;
    int m_tokenLine = 1;
};

class Reader
{
public:
    Reader(const QString &text, QString *why)
        : m_tokens(text)
        , m_why(why)
    {
    }

    bool text(QString *value, const QString &what)
    {
        const Tokens::Type type = m_tokens.next(value);
        if (type == Tokens::Text)
            return true;
        return fail(type == Tokens::End ? QObject::tr("the file ends before the text of %1").arg(what)
                                        : QObject::tr("expected the text of %1").arg(what));
    }
    bool number(double *value, const QString &what)
    {
        QString token;
        bool ok = false;
        const Tokens::Type type = m_tokens.next(&token);
        if (type == Tokens::Number)
            *value = QLocale::c().toDouble(token, &ok);
        if (ok && std::isfinite(*value))
            return true;
        return fail(type == Tokens::End ? QObject::tr("the file ends before a number for %1").arg(what)
                                        : QObject::tr("expected a number for %1").arg(what));
    }
    bool count(qint64 *value, const QString &what, qint64 limit)
    {
        double d = 0;
        if (!number(&d, what))
            return false;
        if (d < 0 || d != std::floor(d) || d > double(limit))
            return fail(QObject::tr("%1 is not a count from 0 to %2").arg(what).arg(limit));
        *value = qint64(d);
        return true;
    }
    // The "<exists>" flag of a TextGrid with tiers (absent in an old form of empty grids).
    bool existsFlag(bool *exists)
    {
        QString token;
        const Tokens::Type t = m_tokens.next(&token);
        *exists = t == Tokens::Flag && token == QLatin1String("exists");
        if (t == Tokens::Flag)
            return true;
        return fail(QObject::tr("expected <exists> or <absent>"));
    }
    bool fail(const QString &what)
    {
        *m_why = QObject::tr("line %1: %2").arg(m_tokens.line()).arg(what);
        return false;
    }
    int line() const { return m_tokens.line(); }
    int permille() const { return m_tokens.size() ? int(m_tokens.position() * 1000 / m_tokens.size()) : 1000; }

private:
    Tokens m_tokens;
    QString *m_why;
};

} // namespace

QByteArray OVTextGrid::write(const OVTranscriptData &data, qint64 *leftOut)
{
    struct Tier
    {
        QString name;
        QList<const OVTranscriptData::Row *> rows;
    };
    // Tiers in the order their names first appear; rows by start within a name.
    QList<QString> names;
    QMap<QString, QList<const OVTranscriptData::Row *>> byName;
    double xmax = 0.0;
    qint64 skipped = 0;
    for (const OVTranscriptData::Row &r : data.rows) {
        if (!(r.end > r.start)) {
            ++skipped;
            continue;
        }
        if (!byName.contains(r.tier))
            names.append(r.tier);
        byName[r.tier].append(&r);
        xmax = std::max(xmax, r.end);
    }
    QList<Tier> tiers;
    for (const QString &name : names) {
        QList<const OVTranscriptData::Row *> rows = byName.value(name);
        std::stable_sort(rows.begin(), rows.end(), [](auto *a, auto *b) { return a->start < b->start; });
        // First fit: each row goes to the first tier of this name whose last interval has ended.
        const qsizetype first = tiers.size();
        for (const OVTranscriptData::Row *r : rows) {
            qsizetype t = first;
            while (t < tiers.size() && tiers.at(t).rows.last()->end > r->start)
                ++t;
            if (t == tiers.size())
                tiers.append(Tier { name, {} });
            tiers[t].rows.append(r);
        }
    }
    if (leftOut)
        *leftOut = skipped;

    QString out;
    out += QStringLiteral("File type = \"ooTextFile\"\nObject class = \"TextGrid\"\n\n");
    out += QStringLiteral("xmin = 0 \nxmax = %1 \ntiers? <exists> \nsize = %2 \nitem []: \n").arg(number(xmax)).arg(tiers.size());
    for (qsizetype t = 0; t < tiers.size(); ++t) {
        QList<OVTranscriptData::Row> intervals;
        double at = 0.0;
        for (const OVTranscriptData::Row *r : tiers.at(t).rows) {
            if (r->start > at)
                intervals.append({ {}, at, r->start, {} });
            intervals.append(*r);
            at = r->end;
        }
        if (at < xmax || intervals.isEmpty())
            intervals.append({ {}, at, std::max(xmax, at + 0.001), {} });
        out += QStringLiteral("    item [%1]:\n        class = \"IntervalTier\" \n        name = %2 \n").arg(t + 1).arg(quoted(tiers.at(t).name));
        out += QStringLiteral("        xmin = 0 \n        xmax = %1 \n        intervals: size = %2 \n")
                   .arg(number(intervals.last().end))
                   .arg(intervals.size());
        for (qsizetype i = 0; i < intervals.size(); ++i) {
            const OVTranscriptData::Row &r = intervals.at(i);
            out += QStringLiteral("        intervals [%1]:\n            xmin = %2 \n            xmax = %3 \n            text = %4 \n")
                       .arg(i + 1)
                       .arg(number(r.start), number(r.end), quoted(r.text));
        }
    }
    return out.toUtf8();
}

bool OVTextGrid::read(const QByteArray &bytes, OVTranscriptData *data, OVTranscriptReport *report,
    OVReadBudget *budget, QString *why)
{
    if (bytes.startsWith("ooBinaryFile")) {
        *why = QObject::tr("binary TextGrids are not read; save the TextGrid as a text file in Praat");
        return false;
    }
    QString text;
    if (!OVTranscriptInput::decode(bytes, &text, why))
        return false;
    Reader in(text, why);
    QString fileType;
    QString objectClass;
    if (!in.text(&fileType, QObject::tr("the file type")) || !in.text(&objectClass, QObject::tr("the object class")))
        return false;
    if (fileType != QLatin1String("ooTextFile") || objectClass != QLatin1String("TextGrid"))
        return in.fail(QObject::tr("not a TextGrid (file type \"%1\", object class \"%2\")").arg(fileType.left(40), objectClass.left(40)));
    double xmin = 0;
    double xmax = 0;
    bool exists = false;
    if (!in.number(&xmin, QStringLiteral("xmin")) || !in.number(&xmax, QStringLiteral("xmax")) || !in.existsFlag(&exists))
        return false;
    qint64 tierCount = 0;
    if (exists && !in.count(&tierCount, QObject::tr("the number of tiers"), 100'000))
        return false;

    QList<OVTranscriptData::Row> rows;
    OVTranscriptReport result;
    for (qint64 t = 0; t < tierCount; ++t) {
        QString tierClass;
        QString name;
        double tmin = 0;
        double tmax = 0;
        qint64 items = 0;
        if (!in.text(&tierClass, QObject::tr("a tier's class")) || !in.text(&name, QObject::tr("a tier's name"))
            || !in.number(&tmin, QStringLiteral("xmin")) || !in.number(&tmax, QStringLiteral("xmax"))
            || !in.count(&items, QObject::tr("the number of intervals"), OVReadBudget::MaxUtterances))
            return false;
        const bool intervals = tierClass == QLatin1String("IntervalTier");
        if (!intervals && tierClass != QLatin1String("TextTier"))
            return in.fail(QObject::tr("unknown tier class \"%1\"").arg(tierClass.left(40)));
        if (!intervals)
            result.skip(QObject::tr("tier \"%1\": a point tier (%n points) has no intervals", nullptr, int(items)).arg(name), items);
        for (qint64 i = 0; i < items; ++i) {
            if (budget && (i & 1023) == 0) {
                if (budget->isCancelled())
                    return in.fail(QObject::tr("cancelled"));
                budget->setProgress(in.permille());
            }
            OVTranscriptData::Row row;
            row.tier = name;
            if (intervals) {
                if (!in.number(&row.start, QStringLiteral("xmin")) || !in.number(&row.end, QStringLiteral("xmax"))
                    || !in.text(&row.text, QObject::tr("an interval")))
                    return false;
                if (row.end < row.start || row.start < 0)
                    return in.fail(QObject::tr("interval %1 of tier \"%2\" has xmin %3 and xmax %4").arg(i + 1).arg(name).arg(row.start).arg(row.end));
                if (row.text.trimmed().isEmpty())
                    continue;
                if (!OVTranscriptInput::takeRows(budget, 1, why))
                    return in.fail(*why);
                rows.append(row);
            } else {
                double time = 0;
                QString mark;
                if (!in.number(&time, QObject::tr("a point's time")) || !in.text(&mark, QObject::tr("a point")))
                    return false;
            }
        }
    }
    std::stable_sort(rows.begin(), rows.end(), [](const auto &a, const auto &b) { return a.start < b.start; });
    return OVTranscriptInput::finish(rows, result, data, report);
}
