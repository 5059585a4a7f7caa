// The transcript table with 10,000 utterances: its setup; one repaint while the highlighted
// utterance follows playback (the position moves, the highlight and scroll follow, the table
// repaints), against a repaint with the position held still; an utterance of a new speaker added
// and undone (the speaker set changes); one key typed into the utterance being transcribed.
#include "project/history.h"
#include "project/project.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/utterance.h"
#include "transcript/ovtranscriber.h"
#include "transcript/ovtranscripthistory.h"
#include "transcript/ovtranscriptmodel.h"
#include "transcript/ovtranscriptview.h"

#include "benchtiming.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QScrollBar>

#include <cstdio>

using namespace OVProject;

namespace {
constexpr int Utterances = 10000;
constexpr int Frames = 300;
} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);

    Project project;
    Timeline *t = project.startNew(QStringLiteral("coder"));
    project.setMaxTextWidth(80);
    QRandomGenerator rng(7);
    const QStringList words{ "so", "I", "think", "that", "the", "meeting", "went", "really", "well", "and", "we", "should",
                             "probably", "talk", "about", "it", "again", "tomorrow", "yes", "no" };
    QList<Utterance *> list;
    double time = 0.0;
    for (int i = 0; i < Utterances; ++i) {
        auto *u = new Utterance(BaseNode::newId());
        u->setSpeaker(QStringLiteral("Speaker %1").arg(1 + rng.bounded(4)));
        QStringList text;
        const int n = 4 + rng.bounded(30);
        for (int w = 0; w < n; ++w)
            text << words.at(rng.bounded(int(words.size())));
        u->setText(text.join(QLatin1Char(' ')));
        u->setStartTime(time);
        time += 1.0 + rng.bounded(4.0);
        u->setEndTime(time - 0.2);
        list.append(u);
    }
    t->addUtterances(list);
    project.setVideoLength(time);

    OVTranscriptView view;
    view.resize(900, 700);
    QElapsedTimer setup;
    const double setupCpu0 = BenchTiming::cpuMs();
    setup.start();
    view.setProject(&project);
    view.show();
    QApplication::processEvents();
    const double setupMs = setup.nsecsElapsed() / 1e6;
    const double setupCpuMs = BenchTiming::cpuMs() - setupCpu0;

    auto repaint = [&] {
        view.viewport()->repaint();
    };
    // Warm up caches (fonts, layouts) before measuring.
    for (int i = 0; i < 20; ++i)
        repaint();

    const BenchTiming::Timing still = BenchTiming::median(Frames, repaint);
    // Playback at 2x seen at 60 pictures a second, in stretches across the whole transcript.
    double pos = 0.0;
    int frame = 0, scrolled = 0;
    const BenchTiming::Timing follow = BenchTiming::median(Frames, [&] {
        if (frame++ % 30 == 0)
            pos = rng.bounded(time);
        pos += 2.0 / 60.0;
        const int before = view.verticalScrollBar()->value();
        project.state()->setCurrentPos(pos);
        repaint();
        scrolled += view.verticalScrollBar()->value() != before;
    });

    OVTranscriptHistory requests;
    requests.setProject(&project);
    view.setRequests(&requests);
    int speakers = 0;
    const BenchTiming::Timing newSpeaker = BenchTiming::median(15, [&] {
        requests.addUtterance(t, time / 2, time / 2 + 1, QStringLiteral("Visitor %1").arg(++speakers), QStringLiteral("hello"));
        QApplication::processEvents();
        project.history()->undo();
        QApplication::processEvents();
    });
    OVTranscriber transcriber(&requests);
    transcriber.setProject(&project);
    transcriber.setEnabled(true);
    project.state()->setCurrentPos(time / 3);
    transcriber.start();
    QString typed;
    const BenchTiming::Timing key = BenchTiming::median(60, [&] {
        typed += QLatin1Char(typed.size() % 6 == 5 ? ' ' : 'a' + typed.size() % 26);
        transcriber.setDraft(typed);
        QApplication::processEvents();
    });
    if (transcriber.openUtterance()->text() != typed || project.history()->count() < 2)
        std::fprintf(stderr, "typing did not reach the model as expected\n");

    std::printf("utterances: %d, frames: %d, table set up in %.1f ms (cpu %.1f ms), scrolled on %d frames\n", Utterances,
                Frames, setupMs, setupCpuMs, scrolled);
    std::printf("repaint, position still:     median %.3f ms (cpu %.3f ms)\n", still.wallMs, still.cpuMs);
    std::printf("repaint, following playback: median %.3f ms (cpu %.3f ms), %.2fx the still repaint\n", follow.wallMs,
                follow.cpuMs, still.wallMs > 0 ? follow.wallMs / still.wallMs : 0.0);
    std::printf("BENCH transcript_view_scroll_ms %.3f ms\n", follow.wallMs);
    std::printf("BENCH transcript_view_scroll_cpu_ms %.3f ms\n", follow.cpuMs);
    std::printf("new speaker added and undone: median %.2f ms (cpu %.2f ms)\n", newSpeaker.wallMs, newSpeaker.cpuMs);
    std::printf("one key typed into the open utterance: median %.2f ms (cpu %.2f ms)\n", key.wallMs, key.cpuMs);
    std::printf("BENCH transcript_view_setup_ms %.1f ms\n", setupMs);
    std::printf("BENCH transcript_view_setup_cpu_ms %.1f ms\n", setupCpuMs);
    std::printf("BENCH transcript_view_new_speaker_ms %.2f ms\n", newSpeaker.wallMs);
    std::printf("BENCH transcript_view_new_speaker_cpu_ms %.2f ms\n", newSpeaker.cpuMs);
    std::printf("BENCH transcript_view_key_typed_ms %.2f ms\n", key.wallMs);
    std::printf("BENCH transcript_view_key_typed_cpu_ms %.2f ms\n", key.cpuMs);
    return 0;
}
