// tavo_fake_provider: an AI provider on 127.0.0.1 for end-to-end runs.
//
//   tavo_fake_provider [--answer TEXT] [--status N] [--body TEXT] [--header "Name: value"]...
//                      [--fault KIND] [--script JSON|FILE] [--record FILE]
//
// It listens on 127.0.0.1 on a free port and prints that port as one line on stdout; point the client at it
// with TAVO_OPENAI_API_BASE / TAVO_ANTHROPIC_API_BASE / TAVO_GEMINI_API_BASE=http://127.0.0.1:PORT.
// Runs until killed.
//
// Every request is answered the same way unless a script says otherwise:
//   --answer TEXT   a success in the shape of the protocol the path names: "/…/responses" (OpenAI),
//                   "/…/messages" (Anthropic) or "…:generateContent" (Gemini). The default is "ok".
//   --status N --body TEXT   that status and that body verbatim (the body replaces --answer).
//   --header LINE   an extra header line on every answer.
//   --fault KIND    close (drop once the request is in), close-mid-body, silent (never answer),
//                   trickle (one body byte a second), huge (a 100 MiB body).
//   --script        a JSON text or the path of a JSON file: one reply object for every request, or an array of
//                   them used in order, the last repeating. A reply object has any of
//                   {"status": 429, "headers": {"Retry-After": "1"}, "body": "…", "answer": "…", "fault": "…"}.
//   --record FILE   appends each request as one JSON line: {"method", "path", "headers" (lower-cased names),
//                   "body"}; a body that is not UTF-8 comes as "bodyBase64" instead. Flushed per request.

#include "fake_provider.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringDecoder>
#include <QTextStream>

#include <cstdio>
#include <memory>
#include <optional>

using tavo::test::FakeProvider;

namespace {

struct ScriptedReply
{
    FakeProvider::Reply reply;
    std::optional<QString> answer; // built per request, in the protocol of its path
};

std::optional<FakeProvider::Fault> faultNamed(const QString& name)
{
    if (name.isEmpty() || name == u"none") {
        return FakeProvider::Fault::None;
    }
    if (name == u"close") {
        return FakeProvider::Fault::CloseAtOnce;
    }
    if (name == u"close-mid-body") {
        return FakeProvider::Fault::CloseMidBody;
    }
    if (name == u"silent") {
        return FakeProvider::Fault::Silent;
    }
    if (name == u"trickle") {
        return FakeProvider::Fault::Trickle;
    }
    if (name == u"huge") {
        return FakeProvider::Fault::HugeBody;
    }
    return std::nullopt;
}

std::optional<ScriptedReply> replyFrom(const QJsonObject& object)
{
    ScriptedReply scripted;
    scripted.reply.status = object.value(QStringLiteral("status")).toInt(200);
    const QJsonObject headers = object.value(QStringLiteral("headers")).toObject();
    for (auto it = headers.begin(); it != headers.end(); ++it) {
        scripted.reply.headers += it.key().toUtf8() + ": " + it.value().toString().toUtf8() + "\r\n";
    }
    if (object.contains(QStringLiteral("body"))) {
        scripted.reply.body = object.value(QStringLiteral("body")).toString().toUtf8();
    } else {
        scripted.answer = object.value(QStringLiteral("answer")).toString(QStringLiteral("ok"));
    }
    const std::optional<FakeProvider::Fault> fault = faultNamed(object.value(QStringLiteral("fault")).toString());
    if (!fault) {
        return std::nullopt;
    }
    scripted.reply.fault = *fault;
    return scripted;
}

std::optional<QList<ScriptedReply>> scriptFrom(const QString& argument)
{
    QByteArray text = argument.toUtf8();
    const QByteArray trimmed = text.trimmed();
    if (!trimmed.startsWith('{') && !trimmed.startsWith('[')) {
        QFile file(argument);
        if (!file.open(QIODevice::ReadOnly)) {
            return std::nullopt;
        }
        text = file.readAll();
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError) {
        return std::nullopt;
    }
    const QJsonArray objects = document.isArray() ? document.array() : QJsonArray{document.object()};
    QList<ScriptedReply> replies;
    for (const QJsonValue& value : objects) {
        const std::optional<ScriptedReply> scripted = replyFrom(value.toObject());
        if (!scripted) {
            return std::nullopt;
        }
        replies.append(*scripted);
    }
    if (replies.isEmpty()) {
        return std::nullopt;
    }
    return replies;
}

QByteArray recordLine(const FakeProvider::Recorded& request)
{
    QJsonObject headers;
    for (auto it = request.headers.begin(); it != request.headers.end(); ++it) {
        headers.insert(QString::fromUtf8(it.key()), QString::fromUtf8(it.value()));
    }
    QJsonObject line{{QStringLiteral("method"), QString::fromUtf8(request.method)},
                     {QStringLiteral("path"), QString::fromUtf8(request.path)},
                     {QStringLiteral("headers"), headers}};
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString body = decoder.decode(request.body);
    if (decoder.hasError()) {
        line.insert(QStringLiteral("bodyBase64"), QString::fromLatin1(request.body.toBase64()));
    } else {
        line.insert(QStringLiteral("body"), body);
    }
    return QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n';
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("An AI provider on 127.0.0.1 for tests."));
    parser.addHelpOption();
    const QCommandLineOption answerOption(QStringLiteral("answer"), QStringLiteral("Answer text."),
                                          QStringLiteral("TEXT"), QStringLiteral("ok"));
    const QCommandLineOption statusOption(QStringLiteral("status"), QStringLiteral("HTTP status."),
                                          QStringLiteral("N"));
    const QCommandLineOption bodyOption(QStringLiteral("body"), QStringLiteral("Body verbatim."),
                                        QStringLiteral("TEXT"));
    const QCommandLineOption headerOption(QStringLiteral("header"), QStringLiteral("Extra header line."),
                                          QStringLiteral("LINE"));
    const QCommandLineOption faultOption(QStringLiteral("fault"), QStringLiteral("Fault to play."),
                                         QStringLiteral("KIND"));
    const QCommandLineOption scriptOption(QStringLiteral("script"), QStringLiteral("Replies as JSON or a JSON file."),
                                          QStringLiteral("JSON|FILE"));
    const QCommandLineOption recordOption(QStringLiteral("record"), QStringLiteral("Append requests as JSON lines."),
                                          QStringLiteral("FILE"));
    parser.addOptions({answerOption, statusOption, bodyOption, headerOption, faultOption, scriptOption, recordOption});
    parser.process(app);

    QList<ScriptedReply> replies;
    if (parser.isSet(scriptOption)) {
        const std::optional<QList<ScriptedReply>> script = scriptFrom(parser.value(scriptOption));
        if (!script) {
            std::fprintf(stderr, "tavo_fake_provider: unreadable script\n");
            return 2;
        }
        replies = *script;
    } else {
        ScriptedReply scripted;
        scripted.reply.status = parser.isSet(statusOption) ? parser.value(statusOption).toInt() : 200;
        for (const QString& line : parser.values(headerOption)) {
            scripted.reply.headers += line.toUtf8() + "\r\n";
        }
        if (parser.isSet(bodyOption)) {
            scripted.reply.body = parser.value(bodyOption).toUtf8();
        } else {
            scripted.answer = parser.value(answerOption);
        }
        const std::optional<FakeProvider::Fault> fault = faultNamed(parser.value(faultOption));
        if (!fault) {
            std::fprintf(stderr, "tavo_fake_provider: unknown fault\n");
            return 2;
        }
        scripted.reply.fault = *fault;
        replies.append(scripted);
    }

    std::unique_ptr<QFile> record;
    if (parser.isSet(recordOption)) {
        record = std::make_unique<QFile>(parser.value(recordOption));
        if (!record->open(QIODevice::WriteOnly | QIODevice::Append)) {
            std::fprintf(stderr, "tavo_fake_provider: cannot open the record file\n");
            return 2;
        }
    }

    FakeProvider provider;
    if (!provider.isListening()) {
        std::fprintf(stderr, "tavo_fake_provider: cannot listen on 127.0.0.1\n");
        return 2;
    }
    qsizetype served = 0;
    provider.responder = [&replies, &served, &record](const FakeProvider::Recorded& request) {
        // Written before the answer leaves, so a client that has its answer can read the record.
        if (record) {
            record->write(recordLine(request));
            record->flush();
        }
        const ScriptedReply& scripted = replies.at(std::min(served++, replies.size() - 1));
        FakeProvider::Reply reply = scripted.reply;
        if (scripted.answer) {
            reply.body = FakeProvider::answerBodyFor(request.path, *scripted.answer);
        }
        return reply;
    };
    std::printf("%u\n", unsigned(provider.port()));
    std::fflush(stdout);
    return app.exec();
}
