#pragma once
#include <QWidget>

class FeedPlayer;
class QComboBox;
class QLabel;
class QProgressBar;
class QPushButton;

// Controls of a replication log's replay: start, pause and resume, the
// pace between batches, and how far it has come.
class ReplayPanel : public QWidget
{
    Q_OBJECT
public:
    ReplayPanel(FeedPlayer* player, QWidget* parent = nullptr);

    void setLog(QString const& path);
    QString log() const { return m_log; }
    // Paces offered, in milliseconds between batches (0: full speed).
    static QList<int> paces();
    void setPace(int msecs);

    QPushButton* startButton() const { return m_start; }
    QProgressBar* progressBar() const { return m_progress; }

signals:
    void failed(QString const& message);

public slots:
    void start();
    void togglePause();

private:
    void updateState();

    FeedPlayer* m_player;
    QString m_log;
    bool m_done = false;
    QPushButton* m_start;
    QComboBox* m_pace;
    QProgressBar* m_progress;
    QLabel* m_state;
};
