#pragma once
#include <QtGlobal>
#if defined(GATEWAY_BUILD)
#  define GATEWAY_EXPORT Q_DECL_EXPORT
#else
#  define GATEWAY_EXPORT Q_DECL_IMPORT
#endif
