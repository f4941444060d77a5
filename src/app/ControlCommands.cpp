#include "app/ControlCommands.h"

#include "app/RecorderViewModel.h"
#include "capture/CaptureEngine.h"
#include "recorder/SegmentedRecorder.h"

using ControlProtocol::Reply;

ControlProtocol::Reply ControlCommands::handle(const QStringList& command)
{
    const QString name = command.value(0);
    SegmentedRecorder* recorder = viewModel.recorder();
    if (name == QStringLiteral("toggle")) {
        if (recorder->isRecording()) {
            viewModel.stopRecording();
            return Reply::success(QStringLiteral("stopped; saving the clip"));
        }
        viewModel.startRecording();
        return Reply::success(QStringLiteral("recording"));
    }
    if (name == QStringLiteral("start")) {
        if (recorder->isRecording()) return Reply::success(QStringLiteral("already recording"));
        viewModel.startRecording();
        return Reply::success(QStringLiteral("recording"));
    }
    if (name == QStringLiteral("stop")) {
        if (!recorder->isRecording()) return Reply::success(QStringLiteral("not recording"));
        viewModel.stopRecording();
        return Reply::success(QStringLiteral("stopped; saving the clip"));
    }
    if (name == QStringLiteral("status")) return Reply::success(status());
    return Reply::failure(QStringLiteral("unknown command '%1'").arg(name));
}

QString ControlCommands::status() const
{
    const SegmentedRecorder* recorder = viewModel.recorder();
    const CaptureEngine* engine = viewModel.engine();
    QString state;
    if (recorder->isRecording())
        state = QStringLiteral("recording %1 s").arg(recorder->currentDuration(), 0, 'f', 1);
    else if (recorder->isExporting())
        state = QStringLiteral("saving a clip");
    else if (engine->isStreaming())
        state = QStringLiteral("buffering %1 s").arg(recorder->bufferedSeconds(), 0, 'f', 1);
    else
        state = QStringLiteral("idle");
    const auto label = viewModel.sourceLabelForFilename();
    state += label ? QStringLiteral(" (source: %1)").arg(*label) : QStringLiteral(" (no source selected)");
    if (engine->errorMessage()) state += QStringLiteral("; ") + *engine->errorMessage();
    return state;
}
