#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QObject>
#include <QString>
#include <QStringList>

#include <QList>
#include <QPair>

#include <functional>
#include <optional>

class QFileSystemWatcher;

namespace tavo {

// The settings store: typed values under the product's key strings, in one JSON file
// ($XDG_CONFIG_HOME/Tavo/defaults.json). An absent key and a present empty value differ, and a
// value keeps its JSON type, so a Boolean is never mistaken for a number or a text.
//
// Tavo and tavoctl share the file. Every write re-reads the file under a lock and changes only
// the keys written, so two processes never undo each other; `watchForChanges` makes a long-lived
// process pick up what others wrote.
class Defaults : public QObject
{
    Q_OBJECT

public:
    explicit Defaults(const QString& filePath = defaultFilePath(), QObject* parent = nullptr);
    ~Defaults() override;

    static QString defaultFilePath();
    QString filePath() const { return m_filePath; }

    bool contains(const QString& key) const;
    QJsonValue value(const QString& key) const; // Undefined when absent
    QStringList keys() const;

    // Typed reads: nothing when the key is absent or holds another type.
    std::optional<QString> string(const QString& key) const;
    std::optional<bool> boolean(const QString& key) const;
    std::optional<double> number(const QString& key) const;
    std::optional<QStringList> stringList(const QString& key) const;
    // Bytes live in the file as {"$bytes": "<base64>"}: an object of that one key keeps them apart
    // from a text, so a string that happens to be valid base64 is never read as bytes.
    std::optional<QByteArray> bytes(const QString& key) const;
    static QJsonValue bytesValue(const QByteArray& bytes);

    bool flag(const QString& key) const { return boolean(key).value_or(false); }

    void setValue(const QString& key, const QJsonValue& value);
    void setString(const QString& key, const QString& value) { setValue(key, value); }
    void setBoolean(const QString& key, bool value) { setValue(key, value); }
    void setNumber(const QString& key, double value) { setValue(key, value); }
    void setStringList(const QString& key, const QStringList& value);
    void setBytes(const QString& key, const QByteArray& value) { setValue(key, bytesValue(value)); }
    // Several keys under one lock, with one write and one valuesChanged, so a reader never sees
    // half of a set that belongs together. An undefined value removes its key.
    void setValues(const QList<QPair<QString, QJsonValue>>& values);
    void remove(const QString& key);
    // Adds to the number under `key` (absent or not a number: 0) in one locked read-change-write,
    // so two processes counting at once lose nothing. Returns the new value.
    double addToNumber(const QString& key, double amount);

    // Reads the file again, taking what other processes wrote.
    void reload();
    void watchForChanges();

    // Whether the file existed but could not be read when this store was last loaded; it was
    // kept aside before anything was written over it.
    bool lostUnreadableFile() const { return m_lostUnreadableFile; }

signals:
    void valuesChanged();

private:
    void write(const QString& key, const std::optional<QJsonValue>& value);
    // Under the file's lock: what is on disk now, then `change` of the key's current value.
    QJsonValue update(const QString& key, const std::function<std::optional<QJsonValue>(const QJsonValue&)>& change);
    // Under the file's lock: what is on disk now, then `change` of the whole object.
    void updateAll(const std::function<void(QJsonObject&)>& change);
    QJsonObject readFile();

    // Which file `m_values` was read from or written to. An atomic write makes a new file, so
    // another process's write always shows as a new identity, and an unchanged one needs no read.
    struct FileIdentity
    {
        qint64 device = -1;
        qint64 inode = -1;
        qint64 size = -1;
        qint64 modifiedNs = -1;
        bool operator==(const FileIdentity&) const = default;
    };
    static FileIdentity identityOf(const QString& path);

    QString m_filePath;
    QJsonObject m_values;
    FileIdentity m_known; // none (the default) until read or written
    bool m_lostUnreadableFile = false;
    QFileSystemWatcher* m_watcher = nullptr;
};

} // namespace tavo
