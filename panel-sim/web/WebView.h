#ifndef WEBVIEW_H
#define WEBVIEW_H

#include <QElapsedTimer>
#include <QHash>
#include <QHostAddress>
#include <QHttpServer>
#include <QJsonObject>
#include <QObject>
#include <QUrl>

#include <memory>
#include <vector>

class QWebSocket;
class VirtualPanel;

// The virtual panel as a web page: the page and its scripts come from the
// compiled-in resources, the fonts from a directory of PCF files, and the
// panel's state goes to every page over a WebSocket at each change. The page
// sends back the operator's input and an acknowledgement of each state it has
// drawn; a page gets the next state only after that, so a slow page gets the
// latest state instead of a queue.
class WebView : public QObject
{
    Q_OBJECT

public:
    struct Options
    {
        QHostAddress address = QHostAddress::LocalHost;
        quint16 port = 0; // 0: a free port
        QString fontDir;
    };

    WebView(VirtualPanel &panel, const Options &options, QObject *parent = nullptr);
    ~WebView() override;

    bool listen(QString *error);
    QUrl url() const;
    // "123 updates drawn by the page: median 1.2 ms, max 8.5 ms after the change".
    QString latencySummary() const;

private:
    struct Page
    {
        std::unique_ptr<QWebSocket> socket;
        qint64 changedAt = -1; // first change not yet sent, micros()
        qint64 sentChangedAt = -1;
        qint64 sent = 0;     // sequence number of the last state sent
        bool waiting = false; // for the acknowledgement of that state
    };

    void route();
    void acceptPages();
    void panelChanged();
    void push(Page &page);
    void receive(Page &page, const QString &message);
    QJsonObject state() const;
    qint64 micros() const;
    struct FontFile
    {
        bool found = false;
        QByteArray body; // the font's JSON, or why there is none
    };
    FontFile font(const QString &name);

    VirtualPanel &_panel;
    Options _options;
    QHttpServer _server;
    quint16 _port = 0;
    std::vector<std::unique_ptr<Page>> _pages;
    QHash<QString, FontFile> _fonts; // the fonts found, read once
    QElapsedTimer _clock;
    std::vector<double> _latencies; // ms, of the last updates
};

#endif // WEBVIEW_H
