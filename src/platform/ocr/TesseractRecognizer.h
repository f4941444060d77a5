#pragma once

#include "platform/TextRecognizer.h"

#include <memory>

namespace tesseract {
class TessBaseAPI;
}

// Tesseract 5 with the English data of the system (tesseract-ocr-eng), LSTM engine, quiet on
// stderr. Each instance is one engine for one thread at a time; make one per worker.
class TesseractRecognizer : public TextRecognizer {
public:
    // Null when the engine can't start (no language data); the reason is logged once.
    static std::unique_ptr<TextRecognizer> create();
    // What Platform hands out: makes an engine on the calling thread.
    static RecognizerFactory factory();

    ~TesseractRecognizer() override;
    QList<RecognizedLine> recognize(const QImage& image) override;

private:
    explicit TesseractRecognizer(std::unique_ptr<tesseract::TessBaseAPI> api);
    std::unique_ptr<tesseract::TessBaseAPI> api;
};
