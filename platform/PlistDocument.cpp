#include "PlistDocument.h"

#include <QDateTime>
#include <QSet>

#include <plist/plist.h>

#include <cstdlib>
#include <limits>

namespace {

// Seconds between the Unix epoch and the property-list epoch (2001-01-01).
constexpr qint64 plistEpochOffset = 978307200;

QVariant toVariant(plist_t node);

// Calls visit(key, item) for each entry of a dictionary, in order.
template <typename Visit> void forEachEntry(plist_t dict, Visit visit)
{
    plist_dict_iter iter = nullptr;
    plist_dict_new_iter(dict, &iter);
    for (;;) {
        char* key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(dict, iter, &key, &item);
        const QByteArray name(key ? key : "");
        std::free(key);
        if (!item)
            break;
        visit(name, item);
    }
    std::free(iter);
}

// A binary list can name a key twice; a write would then change one entry
// while readers may see the other.
bool hasRepeatedKeys(plist_t dict)
{
    QSet<QByteArray> seen;
    bool repeated = false;
    forEachEntry(dict, [&](const QByteArray& key, plist_t) {
        repeated = repeated || seen.contains(key);
        seen.insert(key);
    });
    return repeated;
}

QVariant dictToVariant(plist_t dict)
{
    QVariantMap map;
    forEachEntry(dict, [&map](const QByteArray& key, plist_t item) {
        map.insert(QString::fromUtf8(key), toVariant(item));
    });
    return map;
}

QVariant toVariant(plist_t node)
{
    switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return QString::fromUtf8(text, static_cast<qsizetype>(length));
    }
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return bool(value);
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        // libplist keeps negative integers as their two's complement.
        return static_cast<qint64>(value);
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return value;
    }
    case PLIST_DATA: {
        char* data = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &data, &length);
        const QByteArray bytes(data, static_cast<qsizetype>(length));
        std::free(data);
        return bytes;
    }
    case PLIST_DATE: {
        int32_t seconds = 0;
        int32_t micros = 0;
        plist_get_date_val(node, &seconds, &micros);
        return QDateTime::fromMSecsSinceEpoch((plistEpochOffset + seconds) * 1000 + micros / 1000, Qt::UTC);
    }
    case PLIST_ARRAY: {
        QVariantList list;
        const uint32_t count = plist_array_get_size(node);
        for (uint32_t i = 0; i < count; ++i)
            list << toVariant(plist_array_get_item(node, i));
        return list;
    }
    case PLIST_DICT:
        return dictToVariant(node);
    default:
        return {};
    }
}

plist_t fromVariant(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::QString:
        return plist_new_string(value.toString().toUtf8().constData());
    case QMetaType::Bool:
        return plist_new_bool(value.toBool());
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return plist_new_uint(static_cast<uint64_t>(value.toLongLong()));
    case QMetaType::Double:
        return plist_new_real(value.toDouble());
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        return plist_new_data(bytes.constData(), static_cast<uint64_t>(bytes.size()));
    }
    case QMetaType::QDateTime: {
        const qint64 ms = value.toDateTime().toMSecsSinceEpoch() - plistEpochOffset * 1000;
        return plist_new_date(static_cast<int32_t>(ms / 1000), static_cast<int32_t>((ms % 1000) * 1000));
    }
    case QMetaType::QVariantList: {
        plist_t array = plist_new_array();
        for (const QVariant& item : value.toList()) {
            plist_t child = fromVariant(item);
            if (!child) {
                plist_free(array);
                return nullptr;
            }
            plist_array_append_item(array, child);
        }
        return array;
    }
    case QMetaType::QVariantMap: {
        plist_t dict = plist_new_dict();
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            plist_t child = fromVariant(it.value());
            if (!child) {
                plist_free(dict);
                return nullptr;
            }
            plist_dict_set_item(dict, it.key().toUtf8().constData(), child);
        }
        return dict;
    }
    default:
        return nullptr;
    }
}

} // namespace

struct PlistDocument::Node {
    explicit Node(plist_t node) : root(node) { }
    ~Node() { plist_free(root); }
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;
    plist_t root;
};

PlistDocument::PlistDocument() : m_root(std::make_unique<Node>(plist_new_dict())) { }
PlistDocument::PlistDocument(std::unique_ptr<Node> root) : m_root(std::move(root)) { }
PlistDocument::~PlistDocument() = default;
PlistDocument::PlistDocument(PlistDocument&&) noexcept = default;
PlistDocument& PlistDocument::operator=(PlistDocument&&) noexcept = default;

std::optional<PlistDocument> PlistDocument::parse(const QByteArray& bytes)
{
    if (bytes.isEmpty() || bytes.size() > std::numeric_limits<uint32_t>::max())
        return std::nullopt;
    plist_t root = nullptr;
    plist_from_memory(bytes.constData(), static_cast<uint32_t>(bytes.size()), &root);
    if (!root)
        return std::nullopt;
    PlistDocument document(std::make_unique<Node>(root));
    if (plist_get_node_type(root) != PLIST_DICT)
        return std::nullopt;
    // The library accepts NUL bytes inside keys and text but then stops the
    // program when asked for such a key; its XML form shows them, so such a
    // document is refused here like any other unreadable one.
    if (document.toXml().contains('\0') || hasRepeatedKeys(root))
        return std::nullopt;
    return document;
}

QByteArray PlistDocument::toXml() const
{
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(m_root->root, &xml, &length);
    QByteArray result(xml, static_cast<qsizetype>(length));
    plist_to_xml_free(xml);
    return result;
}

QVariantMap PlistDocument::toMap() const
{
    return dictToVariant(m_root->root).toMap();
}

QVariant PlistDocument::value(const QString& key) const
{
    plist_t item = plist_dict_get_item(m_root->root, key.toUtf8().constData());
    return item ? toVariant(item) : QVariant();
}

bool PlistDocument::setValue(const QString& key, const QVariant& value)
{
    plist_t item = fromVariant(value);
    if (!item)
        return false;
    plist_dict_set_item(m_root->root, key.toUtf8().constData(), item);
    return true;
}
