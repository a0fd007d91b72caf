#include "core_fixture.h"
#include "enumerations.h"
#include "securities.h"

#include <QCoreApplication>
#include <QTranslator>

// The shipped English translation covers the texts a user sees.
TEST(Translation, EnglishTextsReplaceTheSources)
{
    QTranslator english;
    ASSERT_TRUE(english.load(QStringLiteral("libdirectory_en"), QStringLiteral(TRANSLATIONS_DIR)));
    QCoreApplication::installTranslator(&english);
    EXPECT_EQ(OptioTypeDirectory::i()->nameByKey(QChar('P')), "Put");
    EXPECT_EQ(QCoreApplication::translate("SecurityDirectory", "<инструмент не найден>"), "<security not found>");
    EXPECT_EQ(QCoreApplication::translate("BoardDirectory", "Таблица '%1' отсутствует").arg("boards"), "Table 'boards' is missing");
    EXPECT_EQ(QCoreApplication::translate("RFSStreamsDirectory", "Открыт поток ликвидности %1"), "Liquidity stream %1 opened");
    EXPECT_EQ(QCoreApplication::translate("DealsDirectory", "Квазисделка %1 отклонена. Ошибка ОТС: %2"),
              "Quasi-deal %1 rejected. OTC error: %2");
    QCoreApplication::removeTranslator(&english);
    EXPECT_EQ(OptioTypeDirectory::i()->nameByKey(QChar('P')), QStringLiteral("Пут"));
}
