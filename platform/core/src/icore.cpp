#include <core/defaultcore.h>
#include <core/icore.h>

#include <atomic>

namespace {
std::atomic<ICore*> g_installed{nullptr};
}

ICore::~ICore() = default;

// Placeholders that keep the numbered operations in their slots.
void ICore::reserved3() {}
void ICore::reserved4() {}
void ICore::reserved5() {}
void ICore::reserved7() {}
void ICore::reserved8() {}
void ICore::reserved9() {}
void ICore::reserved10() {}
void ICore::reserved12() {}
void ICore::reserved13() {}
void ICore::reserved14() {}
void ICore::reserved15() {}
void ICore::reserved16() {}
void ICore::reserved17() {}
void ICore::reserved18() {}
void ICore::reserved19() {}
void ICore::reserved20() {}
void ICore::reserved21() {}
void ICore::reserved22() {}
void ICore::reserved24() {}
void ICore::reserved25() {}
void ICore::reserved26() {}
void ICore::reserved28() {}
void ICore::reserved30() {}

ICore* ICore::instance()
{
    if (ICore* core = g_installed.load(std::memory_order_acquire))
        return core;
    return DefaultCore::global();
}

void ICore::setInstance(ICore* core)
{
    g_installed.store(core, std::memory_order_release);
}
