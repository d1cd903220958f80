#include "fake_provider.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>
#include <QTimer>

namespace tavo::test {

namespace {

QByteArray statusLine(int status)
{
    return "HTTP/1.1 " + QByteArray::number(status) + " Status\r\n";
}

} // namespace

FakeProvider::FakeProvider(QObject* parent)
    : QObject(parent)
{
    m_server.listen(QHostAddress::LocalHost, 0);
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            socket->setParent(this);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onData(socket); });
            connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
                m_buffers.remove(socket);
                socket->deleteLater();
            });
        }
    });
}

QString FakeProvider::base() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort());
}

QByteArray FakeProvider::answerBodyFor(const QByteArray& path, const QString& text)
{
    QJsonObject answer;
    if (path.contains(":generateContent")) {
        answer.insert(
            QStringLiteral("candidates"),
            QJsonArray{QJsonObject{
                {QStringLiteral("content"),
                 QJsonObject{{QStringLiteral("parts"), QJsonArray{QJsonObject{{QStringLiteral("text"), text}}}}}}}});
    } else if (path.endsWith("/messages")) {
        answer.insert(
            QStringLiteral("content"),
            QJsonArray{QJsonObject{{QStringLiteral("type"), QStringLiteral("text")}, {QStringLiteral("text"), text}}});
    } else {
        answer.insert(QStringLiteral("output_text"), text);
    }
    return QJsonDocument(answer).toJson(QJsonDocument::Compact);
}

FakeProvider::Reply FakeProvider::replyFor(const Recorded& request)
{
    if (responder) {
        return responder(request);
    }
    if (!script.isEmpty()) {
        return script.takeFirst();
    }
    return Reply{status, extraHeaders, responseBody, fault};
}

void FakeProvider::onData(QTcpSocket* socket)
{
    QByteArray& buffer = m_buffers[socket];
    buffer += socket->readAll();
    const qsizetype headerEnd = buffer.indexOf("\r\n\r\n");
    if (headerEnd < 0) {
        return;
    }
    Recorded request;
    const QList<QByteArray> lines = buffer.left(headerEnd).split('\n');
    const QList<QByteArray> first = lines.first().trimmed().split(' ');
    request.method = first.value(0);
    request.path = first.value(1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        request.headers.insert(lines[i].left(colon).trimmed().toLower(), lines[i].mid(colon + 1).trimmed());
    }
    const qsizetype length = request.headers.value("content-length").toLongLong();
    if (buffer.size() < headerEnd + 4 + length) {
        return;
    }
    request.raw = buffer.left(headerEnd + 4 + length);
    request.body = buffer.mid(headerEnd + 4, length);
    buffer.clear();
    requests.append(request);
    const Reply reply = replyFor(request);
    emit requestReceived(request);

    switch (reply.fault) {
    case Fault::CloseAtOnce:
        socket->abort();
        return;
    case Fault::Silent:
        return;
    case Fault::CloseMidBody: {
        socket->write(statusLine(reply.status) + reply.headers + "Content-Type: application/json\r\nContent-Length: " +
                      QByteArray::number(reply.body.size()) + "\r\n\r\n" + reply.body.left(reply.body.size() / 2));
        // Dropped once the half is out, so the client sees a body cut short rather than none.
        connect(socket, &QTcpSocket::bytesWritten, socket, [socket] {
            if (socket->bytesToWrite() == 0) {
                socket->abort();
            }
        });
        return;
    }
    case Fault::Trickle: {
        socket->write(statusLine(reply.status) + reply.headers +
                      "Content-Type: application/json\r\nContent-Length: 100000\r\n\r\n");
        auto* drip = new QTimer(socket);
        connect(drip, &QTimer::timeout, socket, [socket] { socket->write(" "); });
        drip->start(trickleIntervalMs);
        return;
    }
    case Fault::HugeBody:
        sendHuge(socket, hugeBodyBytes);
        return;
    case Fault::None:
        break;
    }
    socket->write(statusLine(reply.status) + reply.headers + "Content-Type: application/json\r\nContent-Length: " +
                  QByteArray::number(reply.body.size()) + "\r\nConnection: close\r\n\r\n" + reply.body);
    socket->disconnectFromHost();
}

void FakeProvider::sendHuge(QTcpSocket* socket, qint64 total)
{
    socket->write(statusLine(200) + "Content-Type: application/json\r\nContent-Length: " + QByteArray::number(total) +
                  "\r\nConnection: close\r\n\r\n");
    // Written a chunk at a time as the peer reads, so the server itself never holds the whole body.
    const QByteArray chunk(64 * 1024, 'a');
    auto remaining = std::make_shared<qint64>(total);
    auto refill = [socket, chunk, remaining] {
        while (*remaining > 0 && socket->bytesToWrite() < 4 * chunk.size()) {
            const qint64 size = std::min<qint64>(*remaining, chunk.size());
            socket->write(chunk.constData(), size);
            *remaining -= size;
        }
        if (*remaining == 0 && socket->bytesToWrite() == 0) {
            socket->disconnectFromHost();
        }
    };
    connect(socket, &QTcpSocket::bytesWritten, socket, refill);
    refill();
}

} // namespace tavo::test
