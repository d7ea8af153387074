#pragma once

#include <QByteArray>
#include <QString>

#include <map>
#include <variant>
#include <vector>

namespace nuvrel {

/// One value of a binary property list. Null stands for an object that could not be read.
class PV final
{
public:
    enum class Type { Null, Bool, Int, Real, String, Data, Uid, Array, Dict };

    /// A keyed-archive reference to another entry of "$objects".
    struct Uid
    {
        qint64 value = 0;
        friend bool operator==(Uid, Uid) = default;
    };
    using Array = std::vector<PV>;
    using Dict = std::map<QString, PV>;

    PV() = default;
    explicit PV(bool value)
        : m_value(value)
    {}
    explicit PV(qint64 value)
        : m_value(value)
    {}
    explicit PV(double value)
        : m_value(value)
    {}
    explicit PV(QString value)
        : m_value(std::move(value))
    {}
    explicit PV(QByteArray value)
        : m_value(std::move(value))
    {}
    explicit PV(Uid value)
        : m_value(value)
    {}
    explicit PV(Array value)
        : m_value(std::move(value))
    {}
    explicit PV(Dict value)
        : m_value(std::move(value))
    {}

    Type type() const { return static_cast<Type>(m_value.index()); }
    bool isNull() const { return type() == Type::Null; }

    /// The payload when the value has that type, otherwise null.
    const bool* asBool() const { return std::get_if<bool>(&m_value); }
    const qint64* asInt() const { return std::get_if<qint64>(&m_value); }
    const double* asReal() const { return std::get_if<double>(&m_value); }
    const QString* asString() const { return std::get_if<QString>(&m_value); }
    const QByteArray* asData() const { return std::get_if<QByteArray>(&m_value); }
    const Uid* asUid() const { return std::get_if<Uid>(&m_value); }
    const Array* asArray() const { return std::get_if<Array>(&m_value); }
    const Dict* asDict() const { return std::get_if<Dict>(&m_value); }

    /// The value under a key of a dictionary; null when this is no dictionary or lacks the key.
    const PV* value(const QString& key) const;

    friend bool operator==(const PV&, const PV&) = default;

private:
    std::variant<std::monostate, bool, qint64, double, QString, QByteArray, Uid, Array, Dict> m_value;
};

} // namespace nuvrel
