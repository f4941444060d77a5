#include "app/control/ControlCommands.h"

#include "app/session/AreaCommands.h"
#include "app/session/RecorderViewModel.h"
#include "app/session/SourceMemory.h"
#include "capture/CaptureEngine.h"
#include "media/HevcEncoderProbe.h"
#include "monitor/AreaMonitor.h"
#include "recorder/SegmentedRecorder.h"

#include <cmath>

using ControlProtocol::Reply;

ControlProtocol::Reply ControlCommands::handle(const QStringList& command)
{
    const QString name = command.value(0);
    SegmentedRecorder* recorder = viewModel.recorder();
    if (name == QStringLiteral("toggle")) {
        // The recorder reports its new state a moment later; the answer comes from the old one.
        const bool wasRecording = recorder->isRecording();
        viewModel.toggleRecording();
        return Reply::success(wasRecording ? QStringLiteral("stopped; saving the clip") : QStringLiteral("recording"));
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
    // arm and disarm do what the arm hotkey does, when the monitor is in the other state.
    AreaMonitor* monitor = viewModel.areaMonitor();
    if (name == QStringLiteral("arm")) {
        if (monitor->isArmed()) return Reply::success(QStringLiteral("already armed"));
        const QString text = viewModel.toggleAreaMonitor();
        return monitor->isArmed() ? Reply::success(text) : Reply::failure(text);
    }
    if (name == QStringLiteral("disarm")) {
        if (!monitor->isArmed()) return Reply::success(QStringLiteral("not armed"));
        return Reply::success(viewModel.toggleAreaMonitor());
    }
    if (name == QStringLiteral("area") && command.value(1) == QStringLiteral("--pick")) {
        // The answer comes later, as a toast, once the user has drawn the area.
        if (!viewModel.areaCommands()->pickWatchArea())
            return Reply::failure(
                QStringLiteral("no area can be drawn here: this instance shows no windows; give the area as X Y W H"));
        return Reply::success(QStringLiteral("draw the area to watch on the screen; Esc cancels"));
    }
    if (name == QStringLiteral("area")) {
        QList<double> n;
        bool valid = command.size() == 5;
        for (int i = 1; valid && i < command.size(); ++i) {
            n.append(command[i].toDouble(&valid));
            valid = valid && std::isfinite(n.back());
        }
        if (!valid || !(n[2] > 0) || !(n[3] > 0))
            return Reply::failure(QStringLiteral("'area' takes four numbers X Y W H, with W and H above 0"));
        const auto watched = viewModel.areaCommands()->watchArea(QRectF(n[0], n[1], n[2], n[3]));
        return watched.captured ? Reply::success(watched.toast) : Reply::failure(watched.toast);
    }
    return Reply::failure(QStringLiteral("unknown command '%1'").arg(name));
}

QString ControlCommands::status() const
{
    const SegmentedRecorder* recorder = viewModel.recorder();
    const CaptureEngine* engine = viewModel.engine();
    QString state;
    if (recorder->isRecording()) {
        state = QStringLiteral("recording %1 s").arg(recorder->currentDuration(), 0, 'f', 1);
        if (recorder->droppedFrames() > 0)
            state += QStringLiteral(", dropped %1 frames").arg(recorder->droppedFrames());
    } else if (recorder->isExporting())
        state = QStringLiteral("saving a clip");
    else if (engine->isStreaming())
        state = QStringLiteral("buffering %1 s").arg(recorder->bufferedSeconds(), 0, 'f', 1);
    else
        state = QStringLiteral("idle");
    const auto label = viewModel.sourceMemory()->sourceLabelForFilename();
    state += label ? QStringLiteral(" (source: %1)").arg(*label) : QStringLiteral(" (no source selected)");
    if (engine->errorMessage()) state += QStringLiteral("; ") + *engine->errorMessage();
    if (!recorder->bufferProblem().isEmpty())
        state += QStringLiteral("; buffering failed: %1 (in %2)")
                     .arg(recorder->bufferProblem(), recorder->segmentsDirectory());
    if (const auto encoder = HevcEncoderProbe::chosenSoFar()) state += QStringLiteral("; encoder ") + *encoder;
    // Everything lost on the way into the ring since launch, by cause; nothing when nothing was.
    if (const QString lost = recorder->dropCounters()->snapshot().describe(); !lost.isEmpty())
        state += QStringLiteral("; lost ") + lost;
    return state;
}
