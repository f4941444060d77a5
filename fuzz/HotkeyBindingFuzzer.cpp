// A stored hotkey binding of any content: it decodes or it does not, and a binding that decodes
// is stored back as JSON that decodes to the same binding.
#include "FuzzSupport.h"
#include "core/HotkeyBinding.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto binding = HotkeyBinding::fromJson(bytes);
    if (!binding) return 0;
    FUZZ_CHECK(binding->modifierRaw <= (uint64_t(1) << 53), bytes);
    const QByteArray stored = binding->toJson();
    FUZZ_CHECK(HotkeyBinding::fromJson(stored) == binding, stored);
    return 0;
}
