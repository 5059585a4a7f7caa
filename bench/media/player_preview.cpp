// Shows the player panel playing a file, for looking at the canvas by eye or in a screenshot:
//   player_preview <media file> [seconds to run, default 10] [speed, default 1]
#include "app/ovplayercanvas.h"
#include "app/ovplayercontrols.h"
#include "app/ovplayerpanel.h"
#include "media/ovvideoplayer.h"
#include "widgets/ovspeedcontrol.h"

#include <QApplication>
#include <QTimer>

#include <cstdio>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    if (argc < 2) {
        fprintf(stderr, "usage: %s <media file> [seconds] [speed]\n", argv[0]);
        return 2;
    }
    const double seconds = argc > 2 ? atof(argv[2]) : 10.0;
    const double speed = argc > 3 ? atof(argv[3]) : 1.0;
    OVPlayerPanel panel;
    panel.setWindowTitle(QStringLiteral("Kavot player preview"));
    panel.resize(1200, 760);
    panel.show();
    QObject::connect(&panel, &OVPlayerPanel::initFinished, [&](int code, const QString &message) {
        fprintf(stdout, "init: %d %s (canvas: %s)\n", code, qPrintable(message),
                panel.canvas()->usesOpenGL() ? "OpenGL" : "raster");
        fflush(stdout);
    });
    if (speed > 0.0)
        panel.controls()->speedControl()->setSpeed(speed);
    panel.openMedia(QString::fromLocal8Bit(argv[1]));
    QTimer::singleShot(int(seconds * 1000), &app, [&] {
        const OVVideoPlayer *p = panel.player();
        const OVPlaybackQueues &q = const_cast<OVVideoPlayer *>(p)->engine().queues();
        fprintf(stdout, "position %.3f, pictures taken %llu painted %llu skipped %llu\n", p->position(),
                (unsigned long long)panel.canvas()->framesTaken(), (unsigned long long)panel.canvas()->framesPainted(),
                (unsigned long long)q.videoFramesSkipped());
        app.quit();
    });
    return app.exec();
}
