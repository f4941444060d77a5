// A sidecar file of any content: loading it never fails and never gives half a record, and what
// loads saves back to a file that loads as the same record.
#include "FuzzSupport.h"
#include "journal/ClipMetaStore.h"

#include <QUrl>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QUrl clip = QUrl::fromLocalFile(FuzzSupport::scratch().filePath(QStringLiteral("clip.mp4")));
    const QString sidecar = ClipMetaStore::sidecarPath(clip);

    FuzzSupport::writeFile(sidecar, bytes);
    const auto decoded = ClipMetaStore::decode(bytes);
    const ClipMeta loaded = ClipMetaStore::load(clip);
    FUZZ_CHECK(loaded == decoded.value_or(ClipMeta {}), bytes);
    if (!decoded) return 0;

    // A record that was read is one that can be written: a later edit of its notes must not be
    // dropped because some number in it cannot be encoded.
    const auto encoded = ClipMetaStore::encode(*decoded);
    FUZZ_CHECK(encoded.has_value(), bytes);
    FUZZ_CHECK(ClipMetaStore::decode(*encoded) == decoded, *encoded);

    ClipMetaStore::save(*decoded, clip);
    FUZZ_CHECK(ClipMetaStore::load(clip) == *decoded, FuzzSupport::readFile(sidecar));
    return 0;
}
