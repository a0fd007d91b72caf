#pragma once
#include <core/core_export.h>
#include <database/settings.h>

// The user's settings of one group. Values persist where the program points
// every Settings object (Settings::setStorageFile); make one per read or
// write and let it go, as the confirmation questions do.
class CORE_EXPORT AppSettings : public Settings
{
public:
    explicit AppSettings(QString const& group);
    ~AppSettings() override;
};
