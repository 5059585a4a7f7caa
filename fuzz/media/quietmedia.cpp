// Start-up shared by the media fuzz targets: FFmpeg and Qt report every damaged input at length,
// which only slows the fuzzer down and buries its own output.
#include <QtGlobal>

extern "C" {
#include <libavutil/log.h>
}

namespace {
void quietHandler(QtMsgType, const QMessageLogContext &, const QString &) {}
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    av_log_set_level(AV_LOG_QUIET);
    qInstallMessageHandler(quietHandler);
    return 0;
}
