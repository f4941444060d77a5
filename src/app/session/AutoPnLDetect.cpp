#include "app/session/AutoPnLDetect.h"

#include "app/session/SourceMemory.h"
#include "capture/CaptureEngine.h"
#include "journal/ClipAutoDetect.h"
#include "journal/ClipJournalStore.h"
#include "journal/ClipMetaStore.h"
#include "journal/PnLTagWriter.h"
#include "monitor/AreaMonitor.h"

#include <QPointer>
#include <QThreadPool>
#include <QUrl>

struct AutoPnLDetect::Reading {
    std::optional<ClipAutoDetect::Result> result;
    std::optional<QString> disputed; // two readings of the figure disagreed
    QString preview; // what the recogniser saw, when it found no figure
    bool noEngine = false; // Tesseract wouldn't start: its English data is missing
};

AutoPnLDetect::AutoPnLDetect(RecognizerFactory factory, const AreaMonitor& m, const SourceMemory& s,
    const CaptureEngine& e, ClipJournalStore& j, std::function<void(const QString&)> showToast, QObject* parent)
    : QObject(parent)
    , recognizers(std::move(factory))
    , monitor(m)
    , sources(s)
    , engine(e)
    , journal(j)
    , toast(std::move(showToast))
    , pool(new QThreadPool(this))
{
    pool->setMaxThreadCount(1);
}

AutoPnLDetect::~AutoPnLDetect()
{
    pool->clear();
    pool->waitForDone();
}

void AutoPnLDetect::run(const QString& clip)
{
    if (!recognizers) return;
    const std::optional<QRectF> area = monitor.rect();
    if (!area || !(area->width() > 4) || !(area->height() > 4)) {
        toast(QStringLiteral("Auto P&L: pick a watch area to enable detection."));
        return;
    }
    const ClipMetaStore::Sidecar sidecar = ClipMetaStore::read(QUrl::fromLocalFile(clip));
    if (sidecar.state == ClipMetaStore::Sidecar::State::unusable) {
        // Whatever is there may be the user's notes in a form we cannot read: not scanned, not replaced.
        toast(QStringLiteral("Auto P&L: skipped, ") + sidecar.problem);
        return;
    }
    if (!PnLTagWriter::isUntagged(sidecar.meta)) {
        toast(QStringLiteral("Auto P&L: clip already tagged, kept your value."));
        return;
    }
    toast(QStringLiteral("Auto P&L: scanning clip\u2026"));

    // The area is in global points, the clip shows the source: the area relative to the source,
    // scaled from the source's points to the recorded pixels.
    const QRectF crop = area->translated(-sources.sourcePointOrigin());
    const QSizeF sourceSize = sources.sourcePointSize();
    const QSizeF recordedSize(engine.outputWidth(), engine.outputHeight());
    QPointer<AutoPnLDetect> self(this);
    pool->start([self, clip, crop, sourceSize, recordedSize, makeRecognizer = recognizers] {
        Reading out;
        // This worker's own engine, for this clip only: an engine is never shared between threads.
        if (const std::unique_ptr<TextRecognizer> recognizer = makeRecognizer()) {
            const ClipAutoDetect::Detection found
                = ClipAutoDetect::detect(clip, crop, sourceSize, recordedSize, *recognizer);
            out.result = found.result;
            out.disputed = found.disputed;
            if (!out.result && !out.disputed)
                out.preview = ClipAutoDetect::ocrPreview(clip, crop, sourceSize, recordedSize, *recognizer);
        } else {
            out.noEngine = true;
        }
        QMetaObject::invokeMethod(
            self,
            [self, clip, out] {
                if (self) self->finish(clip, out);
            },
            Qt::QueuedConnection);
    });
}

void AutoPnLDetect::finish(const QString& clip, const Reading& reading)
{
    if (reading.noEngine) {
        toast(QStringLiteral("Reading the P&L needs Tesseract's English data (tesseract-ocr-eng)."));
        return;
    }
    if (reading.disputed) {
        toast(QStringLiteral("Auto P&L: couldn't be sure of '") + *reading.disputed
            + QStringLiteral("' \u2014 tag it by hand."));
        return;
    }
    if (!reading.result) {
        toast(reading.preview.isEmpty()
                ? QStringLiteral("Auto P&L: no number found \u2014 tag manually.")
                : QStringLiteral("Auto P&L: no number \u2014 OCR saw '") + reading.preview + QStringLiteral("'"));
        return;
    }
    // The sidecar as it is now, not as it was before the scan: a tag or a note typed meanwhile,
    // here or by another program, is kept.
    const QUrl url = QUrl::fromLocalFile(clip);
    const PnLTagWriter::Written written = PnLTagWriter::write(url, *reading.result);
    switch (written.status) {
    case PnLTagWriter::Written::Status::written:
        journal.reload(url);
        toast(QStringLiteral("Auto P&L: ") + ClipAutoDetect::summary(*reading.result));
        break;
    case PnLTagWriter::Written::Status::kept:
        toast(QStringLiteral("Auto P&L: clip already tagged, kept your value."));
        break;
    case PnLTagWriter::Written::Status::failed:
        toast(QStringLiteral("Auto P&L: ") + ClipAutoDetect::summary(*reading.result) + QStringLiteral(" not written, ")
            + written.problem);
        break;
    }
}
