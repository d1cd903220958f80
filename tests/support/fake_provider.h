#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QTcpServer>

#include <functional>

class QTcpSocket;

namespace tavo::test {

// An AI provider on 127.0.0.1 that records every raw request and answers from a script, so the client is
// exercised over real HTTP without leaving the machine.
class FakeProvider : public QObject
{
    Q_OBJECT

public:
    enum class Fault
    {
        None,
        CloseAtOnce,  // drops the connection once the request is in
        CloseMidBody, // sends the headers and half the body, then drops the connection
        Silent,       // reads the request and never answers
        Trickle,      // sends the headers, then one body byte every `trickleIntervalMs`
        HugeBody,     // a 200 answer of `hugeBodyBytes` bytes, written as the socket drains
    };

    struct Reply
    {
        int status = 200;
        QByteArray headers; // extra header lines, each ending in "\r\n"
        QByteArray body;
        Fault fault = Fault::None;
    };

    struct Recorded
    {
        QByteArray raw; // the request exactly as it arrived
        QByteArray method;
        QByteArray path;
        QMap<QByteArray, QByteArray> headers; // lower-cased names
        QByteArray body;
    };

    // The answer to a request with no scripted reply left and no responder.
    int status = 200;
    QByteArray responseBody;
    QByteArray extraHeaders;
    Fault fault = Fault::None;

    // Replies used in order, one per request, before the fields above.
    QList<Reply> script;
    // When set, decides every answer from the request; takes precedence over everything else.
    std::function<Reply(const Recorded&)> responder;

    int trickleIntervalMs = 1000;
    qint64 hugeBodyBytes = qint64(100) * 1024 * 1024;

    QList<Recorded> requests;

    explicit FakeProvider(QObject* parent = nullptr);

    bool isListening() const { return m_server.isListening(); }
    quint16 port() const { return m_server.serverPort(); }
    QString base() const;

    // An answer in each protocol's success shape, chosen by the request path.
    static QByteArray answerBodyFor(const QByteArray& path, const QString& text);

signals:
    void requestReceived(const tavo::test::FakeProvider::Recorded& request);

private:
    void onData(QTcpSocket* socket);
    Reply replyFor(const Recorded& request);
    void sendHuge(QTcpSocket* socket, qint64 total);

    QTcpServer m_server;
    QHash<QTcpSocket*, QByteArray> m_buffers;
};

} // namespace tavo::test
