#pragma once
// The capture loop of VLTaskEx::dataFromTask, apart from the pipes so that its pass rules can
// be exercised with scripted chunks. Internal to VLTaskEx (and its tests). Pure; any thread.
//
// Passes: when output is captured, read an output chunk (blocking); a non-empty one means the
// pass does not read the error pipe. Otherwise, when errors are captured, read an error chunk;
// an empty one ends the loop (as does an empty output chunk when errors are not captured).
// Each pass appends its output chunk, then the most recently read error chunk, so an error
// chunk is appended again in every later pass that read only output. Output is read to its
// end before the error stream is drained.

#include <QByteArray>

#include <functional>

namespace vltask {

struct Capture {
    QByteArray output;
    QByteArray errors;
    // The output when non-empty, else the errors when non-empty, else the empty output.
    QByteArray result() const { return !output.isEmpty() || errors.isEmpty() ? output : errors; }
};

Capture runCaptureLoop(const std::function<QByteArray()>& readOutput, const std::function<QByteArray()>& readError,
    bool captureOutput, bool captureErrors);

} // namespace vltask
