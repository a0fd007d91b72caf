#include "replay.h"
#include "feed.h"

#include <QComboBox>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

ReplayPanel::ReplayPanel(FeedPlayer* player, QWidget* parent)
    : QWidget(parent), m_player(player), m_start(new QPushButton), m_pace(new QComboBox), m_progress(new QProgressBar),
      m_state(new QLabel)
{
    for (int pace : paces())
        m_pace->addItem(pace == 0 ? tr("Максимальная скорость") : tr("%1 мс между пакетами").arg(pace), pace);
    m_progress->setRange(0, 1000);
    m_progress->setMinimumWidth(200);
    m_state->setTextFormat(Qt::PlainText);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 0, 4, 0);
    layout->addWidget(new QLabel(tr("Журнал репликации")));
    layout->addWidget(m_start);
    layout->addWidget(m_pace);
    layout->addWidget(m_progress);
    layout->addWidget(m_state, 1);
    connect(m_start, &QPushButton::clicked, this, [this] { m_player->isPlaying() ? togglePause() : start(); });
    connect(m_pace, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            [this] { m_player->setPace(m_pace->currentData().toInt()); });
    connect(m_player, &FeedPlayer::progress, this, [this](int applied, qint64 read, qint64 total) {
        m_progress->setValue(total > 0 ? int(read * 1000 / total) : 0);
        m_state->setText(tr("пакетов: %1").arg(applied));
    });
    connect(m_player, &FeedPlayer::finished, this, [this](int applied) {
        m_done = true;
        m_progress->setValue(1000);
        m_state->setText(tr("воспроизведено пакетов: %1").arg(applied));
        updateState();
    });
    connect(m_player, &FeedPlayer::failed, this, [this](QString const& message) {
        m_done = true;
        m_state->setText(tr("остановлено: ошибка в журнале"));
        updateState();
        emit failed(message);
    });
    setPace(0);
    updateState();
}

QList<int> ReplayPanel::paces() { return {0, 10, 50, 200, 1000}; }

void ReplayPanel::setPace(int msecs)
{
    int k = m_pace->findData(msecs);
    if (k < 0) {
        m_pace->addItem(tr("%1 мс между пакетами").arg(msecs), msecs);
        k = m_pace->count() - 1;
    }
    m_pace->setCurrentIndex(k);
    m_player->setPace(msecs);
}

void ReplayPanel::setLog(QString const& path)
{
    m_log = path;
    m_done = false;
    m_progress->setValue(0);
    m_state->setText(QFileInfo(path).fileName());
    updateState();
}

void ReplayPanel::start()
{
    if (m_log.isEmpty() || m_player->isPlaying() || m_done) return;
    QString error;
    m_player->setPace(m_pace->currentData().toInt());
    if (!m_player->start(m_log, error)) {
        m_done = true;
        emit failed(error);
    }
    updateState();
}

void ReplayPanel::togglePause()
{
    if (!m_player->isPlaying()) return;
    m_player->setPaused(!m_player->isPaused());
    updateState();
}

void ReplayPanel::updateState()
{
    bool const playing = m_player->isPlaying();
    m_start->setText(!playing ? tr("Старт") : m_player->isPaused() ? tr("Продолжить") : tr("Пауза"));
    m_start->setEnabled(!m_log.isEmpty() && (playing || !m_done));
}
