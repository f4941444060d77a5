#pragma once

#include <QImage>
#include <QList>
#include <QRectF>
#include <QString>

#include <functional>
#include <memory>

// One line of text found on a picture: the recogniser's best reading of it, and where it stands,
// normalised to 0..1 of the picture with the origin at the bottom left (so a larger y is higher up).
struct RecognizedLine {
    QString text;
    QRectF box;
};

// Reads the lines of text on a picture. Implementations live with the platform (Tesseract under
// src/platform/ocr); the detector only sees this.
//
// One instance serves one thread at a time: an engine keeps per-page state and must never be
// shared across threads. Make one for each worker with a RecognizerFactory.
class TextRecognizer {
public:
    virtual ~TextRecognizer() = default;
    // The lines in whatever order the engine found them; empty when the engine failed or saw nothing.
    virtual QList<RecognizedLine> recognize(const QImage& image) = 0;
};

// Makes a recogniser on the calling thread; null when no engine can be started (data missing).
// Callable from any thread.
using RecognizerFactory = std::function<std::unique_ptr<TextRecognizer>()>;
