#pragma once

#include <QString>
#include <QStringList>

namespace SyncTest {

constexpr int Rate = 22050;

// Runs a tool to its end; false (with a warning holding its output) when it failed.
bool run(const QString &program, const QStringList &args);
// ffmpeg with "-y -hide_banner -loglevel error" before `args`.
bool ffmpeg(const QStringList &args);
bool haveTools();
// An executable shell script `dir/name` with `body`, standing in for the ffmpeg tool.
QString script(const QString &dir, const QString &name, const QByteArray &body);

// A recording of a scene at 22050 Hz mono: speech read by espeak-ng over music and a noise bed,
// `seconds` long. `variant` changes the text, melody and noise, so two variants share no sound.
QString makeScene(const QString &dir, const QString &name, int variant, double seconds);

// Cuts samples [from, to) of `source` and puts them through `filters` (an ffmpeg filter chain,
// may be empty), then adds white noise of amplitude `noise`, into a 22050 Hz mono WAV.
QString derive(const QString &source, const QString &dir, const QString &name, qint64 from, qint64 to,
               const QString &filters = QString(), double noise = 0.0);

} // namespace SyncTest
