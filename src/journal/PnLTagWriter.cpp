#include "journal/PnLTagWriter.h"

#include "journal/ClipMetaStore.h"

namespace PnLTagWriter {

bool isUntagged(const ClipMeta& meta)
{
    return !ClipAutoDetect::isTagged(meta) && !meta.otherFields.contains(QLatin1StringView("pnl"));
}

Written write(const QUrl& clip, const ClipAutoDetect::Result& result)
{
    const ClipMetaStore::Changed changed
        = ClipMetaStore::change(clip, [&](const ClipMeta& current) -> std::optional<ClipMeta> {
              if (!isUntagged(current)) return std::nullopt;
              return ClipAutoDetect::withResult(current, result);
          });
    Written written;
    written.meta = changed.meta;
    switch (changed.status) {
    case ClipMetaStore::Changed::Status::written:
        written.status = Written::Status::written;
        break;
    case ClipMetaStore::Changed::Status::declined:
        written.status = Written::Status::kept;
        break;
    case ClipMetaStore::Changed::Status::failed:
        written.status = Written::Status::failed;
        if (changed.failure) written.problem = changed.failure->text;
        break;
    }
    return written;
}

} // namespace PnLTagWriter
