#pragma once

#include <QString>

#include <utility>
#include <variant>

namespace tavo {

// A failure with a ready-to-show description. `domain` is a short product word such as
// "TavoAI" or "TavoShare"; `code` is the HTTP status where there is one.
struct TavoError
{
    QString domain;
    int code = 0;
    QString description;
};

// The value of a fallible operation, or the error that stopped it.
template<typename T>
class Result
{
public:
    Result(T value)
        : m_state(std::move(value))
    {
    }
    Result(TavoError error)
        : m_state(std::move(error))
    {
    }

    bool ok() const { return std::holds_alternative<T>(m_state); }
    explicit operator bool() const { return ok(); }

    const T& value() const& { return std::get<T>(m_state); }
    T& value() & { return std::get<T>(m_state); }
    T&& value() && { return std::get<T>(std::move(m_state)); }
    const T& operator*() const& { return value(); }
    const T* operator->() const { return &value(); }

    const TavoError& error() const { return std::get<TavoError>(m_state); }

private:
    std::variant<T, TavoError> m_state;
};

} // namespace tavo
