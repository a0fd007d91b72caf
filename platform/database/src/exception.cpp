#include <database/exception.h>

Exception::Exception(QString const& message) : m_message(message) {}
Exception::~Exception() = default;
HookFailure::~HookFailure() = default;
