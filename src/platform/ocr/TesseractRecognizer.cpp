#include "platform/ocr/TesseractRecognizer.h"

#include "core/Log.h"

#include <QRegularExpression>

#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>

#include <cstdlib>
#include <mutex>
#include <omp.h>

namespace {

// Tesseract runs parts of its network on four OpenMP threads. On two cores shared with a recording
// that costs half as much CPU again per clip and saves no time (bench/ocr), so each engine's work
// stays on the thread that asked for it. OMP_THREAD_LIMIT is read once, when the OpenMP runtime
// loads, so it can't be set from here; allowing no active parallel region does the same. A limit
// the user set in the environment is theirs and is kept.
void keepRecognitionOnOneThread()
{
    static std::once_flag once;
    std::call_once(once, [] {
        if (qEnvironmentVariableIsEmpty("OMP_THREAD_LIMIT")) omp_set_max_active_levels(0);
    });
}

// Tesseract splits words at wide gaps, and a monospaced or tabular minus stands a full cell away
// from its digits: "-120.50" comes back as "- 120.50", a figure without its sign. A sign standing
// alone before a figure is joined to it again.
QString joinDetachedSigns(const QString& line)
{
    static const QRegularExpression detached(QStringLiteral("(^|\\s)([-+\u2212\u2013\u2014])\\s+(?=[\\d($])"));
    QString joined = line;
    joined.replace(detached, QStringLiteral("\\1\\2"));
    return joined;
}

// The same gap splits a figure around its separators in a monospaced font: "1, 234.50", "12 ,345"
// and "12. 50" are one figure each, not "234.50" and "50" after a stray number.
QString joinSplitFigures(const QString& line)
{
    static const QRegularExpression after(QStringLiteral("(\\d[.,])\\s+(?=\\d)"));
    static const QRegularExpression before(QStringLiteral("(\\d)\\s+(?=[.,]\\d)"));
    QString joined = line;
    joined.replace(after, QStringLiteral("\\1"));
    joined.replace(before, QStringLiteral("\\1"));
    return joined;
}

} // namespace

TesseractRecognizer::TesseractRecognizer(std::unique_ptr<tesseract::TessBaseAPI> engine)
    : api(std::move(engine))
{
}

TesseractRecognizer::~TesseractRecognizer()
{
    if (api) api->End();
}

std::unique_ptr<TextRecognizer> TesseractRecognizer::create()
{
    keepRecognitionOnOneThread();
    auto engine = std::make_unique<tesseract::TessBaseAPI>();
    // Its diagnostics ("Estimating resolution as ...") are no business of the user's terminal.
    engine->SetVariable("debug_file", "/dev/null");
    if (engine->Init(nullptr, "eng", tesseract::OEM_LSTM_ONLY) != 0) {
        static std::once_flag logged;
        std::call_once(
            logged, [] { logLine(QStringLiteral("OCR: Tesseract has no English data; P&L detection is off")); });
        return nullptr;
    }
    return std::unique_ptr<TextRecognizer>(new TesseractRecognizer(std::move(engine)));
}

RecognizerFactory TesseractRecognizer::factory()
{
    return [] { return create(); };
}

QList<RecognizedLine> TesseractRecognizer::recognize(const QImage& image)
{
    // A P&L panel is a few scattered labels and figures, not a page of paragraphs.
    api->SetPageSegMode(tesseract::PSM_SPARSE_TEXT);
    api->SetVariable("tessedit_char_whitelist", "");
    return read(image);
}

QList<RecognizedLine> TesseractRecognizer::recognizeAmount(const QImage& image)
{
    // The LSTM engine honours the whitelist: a thin minus can't become a quote, a tilde or a dot of
    // some other script, and a letter beside the figure reads as some digit, not as part of it.
    api->SetPageSegMode(tesseract::PSM_SPARSE_TEXT);
    api->SetVariable("tessedit_char_whitelist", "0123456789.,-+()$\u20AC\u00A3\u00A5");
    return read(image);
}

QList<RecognizedLine> TesseractRecognizer::read(const QImage& image)
{
    QList<RecognizedLine> lines;
    if (image.isNull()) return lines;
    const QImage gray = image.convertToFormat(QImage::Format_Grayscale8);
    const int width = gray.width();
    const int height = gray.height();
    api->SetImage(gray.constBits(), width, height, 1, int(gray.bytesPerLine()));
    // Screen text has no print resolution; this keeps Tesseract from guessing one (and saying so).
    api->SetSourceResolution(300);
    if (api->Recognize(nullptr) != 0) {
        api->Clear();
        return lines;
    }
    std::unique_ptr<tesseract::ResultIterator> it(api->GetIterator());
    if (it && !it->Empty(tesseract::RIL_TEXTLINE)) {
        do {
            std::unique_ptr<char[]> text(it->GetUTF8Text(tesseract::RIL_TEXTLINE));
            int left = 0, top = 0, right = 0, bottom = 0;
            if (!text || !it->BoundingBox(tesseract::RIL_TEXTLINE, &left, &top, &right, &bottom)) continue;
            const QString line = joinSplitFigures(joinDetachedSigns(QString::fromUtf8(text.get()).trimmed()));
            if (line.isEmpty()) continue;
            // Pixels from the top left to fractions of the picture from the bottom left.
            const QRectF box(double(left) / width, 1.0 - double(bottom) / height, double(right - left) / width,
                double(bottom - top) / height);
            lines.append(RecognizedLine { line, box });
        } while (it->Next(tesseract::RIL_TEXTLINE));
    }
    api->Clear();
    return lines;
}
