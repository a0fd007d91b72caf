#pragma once
#include <QString>
#include <QTextStream>

// Answers to the console's lookup options, printed as "key: value" lines.
// Each returns false (after printing why) when the argument is malformed.
namespace console {
bool lookupSecurity(QTextStream& out, QString const& textId);
bool lookupSecurityByCode(QTextStream& out, QString const& value);
bool lookupIsin(QTextStream& out, QString const& value);
bool lookupBoard(QTextStream& out, QString const& value);
bool lookupBoardByCode(QTextStream& out, QString const& value);
bool lookupMarket(QTextStream& out, QString const& idOrCode);
}
