#include "WebView.h"

#include "BitmapFont.h"
#include "PanelText.h"
#include "Shortcuts.h"
#include "VirtualPanel.h"

#include <QFile>
#include <QHttpServerResponse>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QWebSocket>

#include <algorithm>

namespace {

constexpr size_t MaxLatencies = 1000;
constexpr int LogLines = 12; // of each log on the page

QJsonArray tail(const QStringList &log)
{
    return QJsonArray::fromStringList(log.mid(qMax(0, int(log.size()) - LogLines)));
}

QHttpServerResponse asset(const QString &name, const char *mimeType)
{
    QFile file(QStringLiteral(":/web/") + name);
    if (!file.open(QIODevice::ReadOnly))
        return QHttpServerResponse(QHttpServerResponse::StatusCode::NotFound);
    return QHttpServerResponse(mimeType, file.readAll());
}

} // namespace

WebView::WebView(VirtualPanel &panel, const Options &options, QObject *parent)
    : QObject(parent), _panel(panel), _options(options)
{
    _clock.start();
    route();
    connect(&_server, &QHttpServer::newWebSocketConnection, this, &WebView::acceptPages);
    connect(&_panel, &VirtualPanel::changed, this, &WebView::panelChanged);
}

WebView::~WebView() = default;

bool WebView::listen(QString *error)
{
    _port = _server.listen(_options.address, _options.port);
    if (_port == 0) {
        *error = QStringLiteral("cannot serve the web view on %1 port %2")
                     .arg(_options.address.toString())
                     .arg(_options.port);
        return false;
    }
    return true;
}

QUrl WebView::url() const
{
    QUrl url;
    url.setScheme(QStringLiteral("http"));
    url.setHost(_options.address.toString());
    url.setPort(_port);
    url.setPath(QStringLiteral("/"));
    return url;
}

QString WebView::latencySummary() const
{
    if (_latencies.empty())
        return QStringLiteral("no update drawn by a page");
    std::vector<double> sorted = _latencies;
    std::sort(sorted.begin(), sorted.end());
    const size_t n = sorted.size();
    const double median = n % 2 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2;
    return QStringLiteral("%1 updates drawn by the page: median %2 ms, max %3 ms after the change")
        .arg(n)
        .arg(median, 0, 'f', 1)
        .arg(sorted.back(), 0, 'f', 1);
}

void WebView::route()
{
    _server.route(QStringLiteral("/"), [] { return asset(QStringLiteral("index.html"), "text/html; charset=utf-8"); });
    _server.route(QStringLiteral("/panel.js"),
                  [] { return asset(QStringLiteral("panel.js"), "text/javascript; charset=utf-8"); });
    _server.route(QStringLiteral("/panel.css"),
                  [] { return asset(QStringLiteral("panel.css"), "text/css; charset=utf-8"); });
    _server.route(QStringLiteral("/font/<arg>"), [this](const QString &name) {
        const FontFile file = font(name);
        return QHttpServerResponse(file.found ? "application/json" : "text/plain; charset=utf-8", file.body,
                                   file.found ? QHttpServerResponse::StatusCode::Ok
                                              : QHttpServerResponse::StatusCode::NotFound);
    });
    // The upgrade to a WebSocket needs a route that takes the request and
    // answers nothing: the socket then goes to acceptPages().
    _server.route(QStringLiteral("/ws"), [](QHttpServerResponder &&) {});
    _server.route(QStringLiteral("/latency"), [this] { return QHttpServerResponse(latencySummary()); });
}

WebView::FontFile WebView::font(const QString &name)
{
    const auto it = _fonts.constFind(name);
    if (it != _fonts.constEnd())
        return *it;
    FontFile file;
    // Only names of the catalogue's form: nothing else of the directory is served.
    static const QRegularExpression catalogueName(QStringLiteral("^[0-9]+x[0-9]+$"));
    QString error;
    if (!catalogueName.match(name).hasMatch()) {
        error = QStringLiteral("%1 is no font name of the form WIDTHxHEIGHT").arg(name);
    } else {
        file.body = bitmapfont::cellsJson(_options.fontDir + QLatin1Char('/') + name + QStringLiteral(".pcf.gz"), name,
                                          &error);
        file.found = !file.body.isEmpty();
    }
    if (!file.found) {
        file.body = error.toUtf8();
        return file; // not kept: any name may be asked for
    }
    return *_fonts.insert(name, file);
}

void WebView::acceptPages()
{
    while (_server.hasPendingWebSocketConnections()) {
        auto page = std::make_unique<Page>();
        page->socket = _server.nextPendingWebSocketConnection();
        // A page of another site in the same browser may not drive the panel.
        const QString origin = page->socket->origin();
        const QString host = QString::fromLatin1(page->socket->request().rawHeader("Host"));
        if (!origin.isEmpty() && QUrl(origin).authority() != host) {
            page->socket->close(QWebSocketProtocol::CloseCodePolicyViolated,
                                QStringLiteral("only panel-sim's own page may connect"));
            page->socket.release()->deleteLater();
            continue;
        }
        Page *raw = page.get();
        connect(raw->socket.get(), &QWebSocket::textMessageReceived, this,
                [this, raw](const QString &message) { receive(*raw, message); });
        connect(raw->socket.get(), &QWebSocket::disconnected, this, [this, raw] {
            const auto gone = std::find_if(_pages.begin(), _pages.end(),
                                           [raw](const std::unique_ptr<Page> &p) { return p.get() == raw; });
            if (gone == _pages.end())
                return;
            // Not deleted inside its own signal, and silent until it goes.
            (*gone)->socket->disconnect(this);
            (*gone)->socket.release()->deleteLater();
            _pages.erase(gone);
        });
        _pages.push_back(std::move(page));
        push(*raw); // the first state times no change
    }
}

void WebView::panelChanged()
{
    const qint64 now = micros();
    for (const std::unique_ptr<Page> &page : _pages) {
        if (page->changedAt < 0)
            page->changedAt = now;
        if (!page->waiting)
            push(*page);
    }
}

void WebView::push(Page &page)
{
    QJsonObject message = state();
    message.insert(QStringLiteral("seq"), double(++page.sent));
    page.sentChangedAt = page.changedAt;
    page.changedAt = -1;
    page.waiting = true;
    page.socket->sendTextMessage(QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact)));
}

void WebView::receive(Page &page, const QString &message)
{
    const QJsonObject input = QJsonDocument::fromJson(message.toUtf8()).object();
    const QString op = input.value(QStringLiteral("op")).toString();
    const int number = input.value(QStringLiteral("n")).toInt(-1);
    if (op == QLatin1String("drawn")) {
        if (!page.waiting || input.value(QStringLiteral("seq")).toDouble() != double(page.sent))
            return;
        page.waiting = false;
        if (page.sentChangedAt >= 0) {
            if (_latencies.size() == MaxLatencies)
                _latencies.erase(_latencies.begin());
            _latencies.push_back(double(micros() - page.sentChangedAt) / 1000.0);
        }
        if (page.changedAt >= 0)
            push(page);
    } else if (op == QLatin1String("press")) {
        _panel.press(number);
    } else if (op == QLatin1String("release")) {
        _panel.release(number);
    } else if (op == QLatin1String("turn")) {
        _panel.turn(number, input.value(QStringLiteral("delta")).toInt());
    } else if (op == QLatin1String("gpi")) {
        _panel.setGpi(number, !_panel.gpi(number));
    } else if (op == QLatin1String("key")) {
        // Quitting and redrawing belong to the terminal; the page shows its help itself.
        shortcuts::apply(_panel, number);
    }
}

qint64 WebView::micros() const
{
    return _clock.nsecsElapsed() / 1000;
}

QJsonObject WebView::state() const
{
    const PanelModel &model = _panel.panel();
    QJsonArray screens;
    for (int screen = 0; screen < PanelModel::Screens; ++screen) {
        QJsonArray rows;
        for (int row = 0; row < paneltext::ScreenRows; ++row) {
            const QVector<paneltext::Cell> cells = paneltext::screenRow(model, screen, row);
            QString text;
            QJsonArray marks;
            for (int column = 0; column < cells.size(); ++column) {
                text += cells.at(column).ch;
                if (cells.at(column).marked)
                    marks.append(QJsonArray{column, double(cells.at(column).colour), double(cells.at(column).background)});
            }
            rows.append(QJsonObject{{QStringLiteral("text"), text},
                                    {QStringLiteral("drawn"), model.lines(screen).contains(row)},
                                    {QStringLiteral("inverse"), model.isHighlighted(screen, row)},
                                    {QStringLiteral("marks"), marks}});
        }
        screens.append(rows);
    }
    QJsonArray keys;
    for (int key = 0; key < PanelModel::Keys; ++key) {
        const PanelModel::KeyLight light = model.keyLight(key);
        keys.append(QJsonArray{light.level1, light.level2, _panel.isPressed(key)});
    }
    QJsonArray leds;
    for (int i = 0; i < PanelModel::StatusLeds; ++i)
        leds.append(QJsonArray{VirtualPanel::LedNames.at(i), model.statusLed(i)});
    QJsonArray gpis;
    for (int gpi = 0; gpi < VirtualPanel::Gpis; ++gpi)
        gpis.append(_panel.gpi(gpi));
    QJsonArray shafts;
    for (int shaft = 0; shaft < VirtualPanel::Shafts; ++shaft)
        shafts.append(_panel.shaftPosition(shaft));
    QJsonArray activation;
    for (int key : _panel.activationKeys())
        activation.append(key);
    bool warning = false;
    const QString status = paneltext::statusLine(_panel, &warning);
    return QJsonObject{{QStringLiteral("daemon"), _panel.daemonState()},
                       {QStringLiteral("root"), _panel.sandbox().root()},
                       {QStringLiteral("status"), status},
                       {QStringLiteral("warning"), warning},
                       {QStringLiteral("font"), _panel.fontName()},
                       {QStringLiteral("tft"), model.tftLevel()},
                       {QStringLiteral("keyLevel"), model.keyLightLevel()},
                       {QStringLiteral("screens"), screens},
                       {QStringLiteral("keys"), keys},
                       {QStringLiteral("leds"), leds},
                       {QStringLiteral("gpis"), gpis},
                       {QStringLiteral("shafts"), shafts},
                       {QStringLiteral("activation"), activation},
                       {QStringLiteral("files"), _panel.filesSummary()},
                       {QStringLiteral("events"), tail(_panel.events())},
                       {QStringLiteral("commands"), tail(_panel.commands())},
                       {QStringLiteral("calls"), tail(_panel.calls())},
                       {QStringLiteral("warnings"), tail(_panel.warnings())},
                       {QStringLiteral("help"), QJsonArray::fromStringList(shortcuts::helpText())}};
}
