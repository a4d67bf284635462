#include "shared/VLTaskExCapture.h"

namespace vltask {

Capture runCaptureLoop(const std::function<QByteArray()>& readOutput, const std::function<QByteArray()>& readError,
    bool captureOutput, bool captureErrors)
{
    Capture capture;
    QByteArray lastError;
    for (;;) {
        const QByteArray outputChunk = captureOutput ? readOutput() : QByteArray();
        if (outputChunk.isEmpty()) {
            if (!captureErrors)
                break;
            lastError = readError();
            if (lastError.isEmpty())
                break;
        }
        capture.output += outputChunk;
        if (captureErrors && !lastError.isEmpty())
            capture.errors += lastError;
    }
    return capture;
}

} // namespace vltask
