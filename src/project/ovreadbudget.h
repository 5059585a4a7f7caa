#pragma once

#include <QString>
#include <QtGlobal>

#include <atomic>
#include <functional>
#include <mutex>

// What reading one file may cost. Project files and label sets come from anywhere: a few
// kilobytes of deflated JSON can stand for gigabytes of text, and every JSON value read becomes a
// node of JsonCpp's tree and then of the model. So one budget is drawn from by every document of
// a load: the text it may inflate to (relative to the file's size, with a floor for small files),
// the JSON values and the model nodes it may build. Readers of one load share it from several
// threads, hence the atomics. It also carries the load's cancel flag and reports its progress.
class OVReadBudget
{
public:
    // A document may inflate to this many times its own size, and all documents of a file
    // together to this many times the file's size...
    static constexpr qint64 MaxInflateRatio = 32;
    // ...but any document and file may inflate to this much (small ones compress better).
    static constexpr qint64 MinTextAllowance = qint64(1) << 20;
    // Absolute ceilings, far above what coding projects hold (an hour of video coded densely
    // is a few thousand segments).
    static constexpr qint64 MaxTextBytes = qint64(512) << 20;
    // JsonCpp spends about 80 bytes on each value it holds; this keeps its tree near 160 MB.
    static constexpr qint64 MaxJsonValues = 2'000'000;
    static constexpr int MaxEntries = 10'000;
    static constexpr int MaxTimelines = 1'000;
    static constexpr qint64 MaxLabels = 100'000;
    static constexpr qint64 MaxSegments = 400'000;
    static constexpr qint64 MaxUtterances = 400'000;
    static constexpr qint64 MaxGroups = 100'000;

    // `sourceSize`: bytes of the file (or document) the load reads.
    explicit OVReadBudget(qint64 sourceSize);

    qint64 textAllowance() const { return m_textAllowance; }
    // What one document of `size` bytes may inflate to, before the shared allowance.
    static qint64 documentAllowance(qint64 size);

    // Each take...() draws from the budget; false (and why() set) when it would be exceeded.
    bool takeText(qint64 bytes);
    bool takeValues(qint64 count);
    bool takeLabels(qint64 count) { return take(m_labels, count, MaxLabels, "labels"); }
    bool takeSegments(qint64 count) { return take(m_segments, count, MaxSegments, "segments"); }
    bool takeUtterances(qint64 count) { return take(m_utterances, count, MaxUtterances, "utterances"); }
    bool takeGroups(qint64 count) { return take(m_groups, count, MaxGroups, "segment groups"); }

    // The reason of the first refusal (cancellation included); empty while none.
    QString why() const;

    // Any thread may cancel; readers poll isCancelled() and stop with a refusal.
    void cancel() { m_cancelled.store(true, std::memory_order_relaxed); }
    bool isCancelled() const { return m_cancelled.load(std::memory_order_relaxed); }

    // Progress of the load in permille. The callback runs on whichever thread advances it and only
    // when the whole-percent value changes; it must be cheap and thread-safe (post, do not paint).
    void setProgressCallback(std::function<void(int permille)> callback) { m_progress = std::move(callback); }
    void setProgress(int permille);

private:
    bool take(std::atomic<qint64> &counter, qint64 count, qint64 limit, const char *what);
    bool refuse(const QString &why);

    const qint64 m_textAllowance;
    std::atomic<qint64> m_text { 0 };
    std::atomic<qint64> m_values { 0 };
    std::atomic<qint64> m_labels { 0 };
    std::atomic<qint64> m_segments { 0 };
    std::atomic<qint64> m_utterances { 0 };
    std::atomic<qint64> m_groups { 0 };
    std::atomic<bool> m_cancelled { false };
    std::atomic<int> m_percent { -1 };
    std::function<void(int)> m_progress;
    // The first refusal's reason. Readers of other timelines ask for it the moment their own
    // take fails, which may be while the first refuser is still writing it.
    mutable std::mutex m_whyLock;
    QString m_why;
};
