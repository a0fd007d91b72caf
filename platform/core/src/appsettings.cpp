#include <core/appsettings.h>

AppSettings::AppSettings(QString const& group) : Settings(group) {}
AppSettings::~AppSettings() = default;
