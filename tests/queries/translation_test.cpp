#include "trading_fixture.h"

#include "queriesfast.h"
#include "queriesgen.h"

#include <QTranslator>

namespace {

// The shipped English translation covers the trading texts, the form's included.
class TradingTranslation : public TradingTest
{
protected:
    void SetUp() override
    {
        TradingTest::SetUp();
        ASSERT_TRUE(m_english.load(QStringLiteral("libdirectory_en"), QStringLiteral(TRANSLATIONS_DIR)));
        QCoreApplication::installTranslator(&m_english);
    }
    void TearDown() override
    {
        QCoreApplication::removeTranslator(&m_english);
        TradingTest::TearDown();
    }

private:
    QTranslator m_english;
};

TEST_F(TradingTranslation, EnglishTextsReplaceTheSources)
{
    ConfirmationDialog dialog(nullptr);
    EXPECT_EQ(dialog.windowTitle(), "Confirmation");
    EXPECT_EQ(dialog.checkBoxText(), "Do not show again");
    EXPECT_TRUE(dialog.text().contains("Do you really want to DO SOMETHING?"));

    {
        ModalAnswerer answerer(ModalAnswerer::PressNo);
        EXPECT_FALSE(QueriesFast::i()->addOrder(4, 10, 110, "ACC1", decimal("1"), 'S', 2));
        EXPECT_EQ(answerer.title, "Placing an order");
        EXPECT_EQ(answerer.text, QStringLiteral("Do you really want to place an order to sell at the swap price %1, "
                                                "quantity 2, from account ACC1?")
                                     .arg(decimal("1.0000").toSystemString()));
    }
    transactions()->clearTemplates();
    EXPECT_EQ(refusal([&] { QueriesGen::i()->dropOrdersBySecurity(4, 1, 100, "ACC1", 'B'); }),
              "No suitable transaction found");
    transactions()->registerTemplate(freeFormTemplate(1025));
    EXPECT_EQ(refusal([&] { QueriesGen::i()->addOrder(4, 1, 100, "ACC1", decimal("1.005"), 'B', 1, nullptr); }),
              QStringLiteral("Price %1 has more decimal places than the instrument allows (2)").arg(decimal("1.005").toSystemString()));
    ServiceSwitchCore withoutService;
    InstalledCore installed(&withoutService);
    EXPECT_EQ(refusal([&] { QueriesGen::i()->dropOrdersBySecurity(4, 1, 100, "ACC1", 'B'); }),
              "The core's transaction service is unavailable");
}

} // namespace
