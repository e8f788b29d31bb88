#pragma once

#include <QString>
#include <QVariantMap>

#include <optional>

// The application bundle: bin/zelna-quorin with its resources in
// share/zelna-quorin/ and its modules in lib/zelna-quorin/plugins/ beside it, found
// from the executable's own location.
class Bundle {
public:
    // The bundle around the running executable.
    static const Bundle& main();
    // The bundle whose executable lies in binDirectory.
    explicit Bundle(const QString& binDirectory);

    QString resourcePath() const { return m_resourcePath; }
    QString pathForResource(const QString& name) const { return m_resourcePath + u'/' + name; }
    QString modulePath() const { return m_modulePath; }

    // Info.plist with its value types kept; nothing when missing or not a property list.
    const std::optional<QVariantMap>& infoDictionary() const { return m_info; }
    QVariant objectForInfoDictionaryKey(const QString& key) const;

    static constexpr const char* resourceFolder = "share/zelna-quorin";
    static constexpr const char* moduleFolder = "lib/zelna-quorin/plugins";

private:
    QString m_resourcePath;
    QString m_modulePath;
    std::optional<QVariantMap> m_info; // read once, never changed: safe from any thread
};
