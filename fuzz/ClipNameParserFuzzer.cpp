// A clip's file name of any content. The folder does not exist, so no date can come from the
// file's modification time: a date found is one read from the name, and it must name exactly the
// minute that the name spells.
#include "FuzzSupport.h"
#include "journal/ClipNameParser.h"
#include "journal/ReferenceDate.h"

#include <QDateTime>
#include <QUrl>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

// A zone with summer time, so that names in the hour the clocks skip or repeat are read too.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    qputenv("TZ", "America/New_York");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    QString name = QString::fromUtf8(bytes);
    name.replace(u'/', u'_');
    const QUrl clip = QUrl::fromLocalFile(QStringLiteral("/nonexistent-velotape-fuzz/") + name);

    const ClipNameParser::Parsed parsed = ClipNameParser::parse(clip);
    const QString stem = ClipNameParser::stem(clip.fileName());
    if (parsed.ticker) {
        FUZZ_CHECK(!parsed.ticker->isEmpty() && !parsed.ticker->contains(u'_'), bytes);
        FUZZ_CHECK(stem.startsWith(*parsed.ticker + u'_'), bytes);
    }
    if (parsed.date) {
        const QString dateText = stem.section(u'_', 1);
        const QDateTime when = ReferenceDate::toDateTime(*parsed.date).toLocalTime();
        FUZZ_CHECK(when.toString(QStringLiteral("yyyy-MM-dd_HH-mm")) == dateText, bytes);
    }

    if (const auto date = ClipNameParser::parseDate(name)) {
        const QDateTime when = ReferenceDate::toDateTime(*date).toLocalTime();
        FUZZ_CHECK(when.toString(QStringLiteral("yyyy-MM-dd_HH-mm")) == name, bytes);
    }
    return 0;
}
