#pragma once

// An HTTP server inside the process, on 127.0.0.1 only, standing in for the update
// server (the self-test and the updater's tests): it answers every request with one
// prepared response, or never. GUI thread.

#include <QHostAddress>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>

namespace lumenvale {

class FeedServer {
  public:
    FeedServer() {
        server_.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&server_, &QTcpServer::newConnection, &server_, [this] {
            while (QTcpSocket* socket = server_.nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::readyRead, socket,
                                 [this, socket] { answer(*socket); });
            }
        });
    }

    // One release of an appcast; an empty channel is the stable one.
    static QByteArray item(const QByteArray& version, const QByteArray& channel = {}) {
        return "<item><title>Lumenvale " + version + "</title><link>" + downloadPage(version) +
               "</link><sparkle:version>" + version + "</sparkle:version>" +
               (channel.isEmpty() ? QByteArray()
                                  : "<sparkle:channel>" + channel + "</sparkle:channel>") +
               "</item>";
    }
    // The page an item of `version` links to.
    static QByteArray downloadPage(const QByteArray& version) {
        return "https://lumenvale.app/download/" + version;
    }
    // A whole appcast holding `items`.
    static QByteArray appcast(const QByteArray& items) {
        return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
               "<rss version=\"2.0\" "
               "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\">\n"
               "<channel><title>Lumenvale</title>" +
               items + "</channel></rss>\n";
    }

    // "http://127.0.0.1:PORT": what LUMENVALE_UPDATE_HOST names.
    QByteArray host() const {
        return "http://127.0.0.1:" + QByteArray::number(server_.serverPort());
    }

    // From now on each request gets `body` with the given HTTP status.
    void serve(const QByteArray& body, int status = 200) {
        body_ = body;
        status_ = status;
        stalls_ = false;
    }
    // From now on requests are read and never answered.
    void stall() { stalls_ = true; }

    // The request targets received so far ("/path?query").
    const QStringList& requests() const { return requests_; }

  private:
    void answer(QTcpSocket& socket) {
        QByteArray request = socket.property("request").toByteArray() + socket.readAll();
        socket.setProperty("request", request);
        if (!request.contains("\r\n\r\n")) {
            return;
        }
        requests_ << QString::fromUtf8(request.left(request.indexOf("\r\n")).split(' ').value(1));
        if (stalls_) {
            return;
        }
        socket.write("HTTP/1.1 " + QByteArray::number(status_) +
                     " Answer\r\nContent-Type: application/rss+xml\r\nContent-Length: " +
                     QByteArray::number(body_.size()) + "\r\nConnection: close\r\n\r\n" + body_);
        socket.disconnectFromHost();
    }

    QTcpServer server_;
    QByteArray body_;
    int status_ = 200;
    bool stalls_ = false;
    QStringList requests_;
};

} // namespace lumenvale
