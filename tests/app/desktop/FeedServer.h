#pragma once

// An HTTP server inside the test process, on 127.0.0.1 only, standing in for the
// update server: it answers every request with one prepared response, or never.

#include <QHostAddress>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>

namespace lumenvale::testing {

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

} // namespace lumenvale::testing
