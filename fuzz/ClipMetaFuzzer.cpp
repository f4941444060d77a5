// A sidecar file of any content: loading it never fails and never gives half a record; what loads
// saves back to a file that loads as the same record; and the writing path, an edit of the notes
// saved over it, either keeps every key of the file it replaces or, for a file that does not read
// as a record, refuses and leaves the bytes as they were.
#include "FuzzSupport.h"
#include "journal/ClipMetaStore.h"

#include <QJsonDocument>
#include <QJsonObject>
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
    const ClipMetaStore::Sidecar read = ClipMetaStore::read(clip);
    FUZZ_CHECK(read.meta == decoded.value_or(ClipMeta {}), bytes);
    FUZZ_CHECK((read.state == ClipMetaStore::Sidecar::State::record) == decoded.has_value(), bytes);

    ClipMeta edited = read.meta;
    edited.notes += QStringLiteral(" (edited)");
    const auto failed = ClipMetaStore::save(edited, clip);
    if (!decoded) {
        FUZZ_CHECK(failed && failed->reason == ClipMetaStore::SaveFailure::Reason::unusable, bytes);
        FUZZ_CHECK(FuzzSupport::readFile(sidecar) == bytes, bytes);
        return 0;
    }

    // A record that was read is one that can be written: a later edit of its notes must not be
    // dropped because some number in it cannot be encoded, nor lose a key it does not know.
    FUZZ_CHECK(!failed, bytes);
    const QByteArray written = FuzzSupport::readFile(sidecar);
    FUZZ_CHECK(ClipMetaStore::load(clip) == edited, written);
    const QJsonObject before = QJsonDocument::fromJson(QString::fromUtf8(bytes).toUtf8()).object();
    const QJsonObject after = QJsonDocument::fromJson(written).object();
    // Every key with a value, known or not: a null says "no value" and may be left out.
    for (auto it = before.begin(); it != before.end(); ++it)
        FUZZ_CHECK(it.value().isNull() || after.contains(it.key()), written);

    const auto encoded = ClipMetaStore::encode(*decoded);
    FUZZ_CHECK(encoded.has_value(), bytes);
    FUZZ_CHECK(ClipMetaStore::decode(*encoded) == decoded, *encoded);
    return 0;
}
