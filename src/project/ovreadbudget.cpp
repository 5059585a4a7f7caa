#include "project/ovreadbudget.h"

#include <algorithm>

OVReadBudget::OVReadBudget(qint64 sourceSize)
    : m_textAllowance(documentAllowance(sourceSize))
{
}

qint64 OVReadBudget::documentAllowance(qint64 size)
{
    return std::clamp(std::max<qint64>(size, 0) * MaxInflateRatio, MinTextAllowance, MaxTextBytes);
}

bool OVReadBudget::refuse(const QString &why)
{
    const std::lock_guard<std::mutex> guard(m_whyLock);
    if (m_why.isEmpty())
        m_why = why;
    return false;
}

QString OVReadBudget::why() const
{
    {
        const std::lock_guard<std::mutex> guard(m_whyLock);
        if (!m_why.isEmpty())
            return m_why;
    }
    return isCancelled() ? QStringLiteral("cancelled") : QString();
}

bool OVReadBudget::takeText(qint64 bytes)
{
    if (isCancelled())
        return refuse(QStringLiteral("cancelled"));
    if (m_text.fetch_add(bytes, std::memory_order_relaxed) + bytes <= m_textAllowance)
        return true;
    return refuse(QStringLiteral("the documents inflate to more than %1 MB (%2 times the file's size)")
                      .arg(m_textAllowance >> 20)
                      .arg(MaxInflateRatio));
}

bool OVReadBudget::takeValues(qint64 count)
{
    if (isCancelled())
        return refuse(QStringLiteral("cancelled"));
    if (m_values.fetch_add(count, std::memory_order_relaxed) + count <= MaxJsonValues)
        return true;
    return refuse(QStringLiteral("the documents hold more than %1 JSON values").arg(MaxJsonValues));
}

bool OVReadBudget::take(std::atomic<qint64> &counter, qint64 count, qint64 limit, const char *what)
{
    if (isCancelled())
        return refuse(QStringLiteral("cancelled"));
    if (counter.fetch_add(count, std::memory_order_relaxed) + count <= limit)
        return true;
    return refuse(QStringLiteral("more than %1 %2").arg(limit).arg(QLatin1String(what)));
}

void OVReadBudget::setProgress(int permille)
{
    permille = std::clamp(permille, 0, 1000);
    const int percent = permille / 10;
    if (m_percent.exchange(percent, std::memory_order_relaxed) != percent && m_progress)
        m_progress(permille);
}
