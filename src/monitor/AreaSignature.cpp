#include "monitor/AreaSignature.h"

#include "monitor/IncrementalSignature.h"

#include <cstdlib>

namespace AreaSignature {

std::optional<QByteArray> downsampleToSignature(const QImage& image)
{
    return IncrementalSignature().signatureOf(image);
}

bool isValid(const QByteArray& signature)
{
    return signature.size() == byteCount;
}

double difference(const QByteArray& reference, const QByteArray& live)
{
    if (!isValid(reference) || !isValid(live)) return 0.0;
    int sum = 0;
    for (int i = 0; i < byteCount; ++i)
        sum += std::abs(static_cast<int>(static_cast<unsigned char>(reference[i]))
            - static_cast<int>(static_cast<unsigned char>(live[i])));
    return static_cast<double>(sum);
}

double threshold(AreaSensitivity sensitivity)
{
    switch (sensitivity) {
    case AreaSensitivity::low:
        return 6000.0;
    case AreaSensitivity::medium:
        return 2500.0;
    case AreaSensitivity::high:
        return 900.0;
    }
    return 2500.0;
}

} // namespace AreaSignature
