#pragma once
#include <QtGlobal>
#if defined(DATABASE_BUILD)
#  define DATABASE_EXPORT Q_DECL_EXPORT
#else
#  define DATABASE_EXPORT Q_DECL_IMPORT
#endif
