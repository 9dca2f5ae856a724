// Reader of optional-argument lists. A worker's options are one loop:
//
//     OptionReader reader(list, count_codes);
//     while (const int code = reader.next()) {
//         switch (code) {
//         case TAVIK_X_COL_DIM: options.x_col_dim = reader.integer(); break;
//         ...
//         default: reader.unknown(11001); return false;
//         }
//     }
//
// It fills a plain struct; nothing acts before the list has ended.
#pragma once

#include "checkers.hpp"

#include <cstdarg>

namespace tavik {

// The optional arguments of a public routine. The entry starts and ends the list, the reader walks it.
struct ArgumentList {
    va_list arguments;
};

// How the position of an option code, which an unknown code reports, is counted. It differs by routine.
struct PositionRule {
    int first;     // position of the first code
    int per_code;  // what a code adds
    int per_value; // what each of its values adds
};

constexpr PositionRule count_codes{1, 1, 0};

class OptionReader {
public:
    OptionReader(ArgumentList &list, PositionRule rule) : list_(list), rule_(rule), next_position_(rule.first)
    {
    }

    // For routines whose first code is a named argument.
    OptionReader(int first_code, ArgumentList &list, PositionRule rule)
        : list_(list), rule_(rule), next_position_(rule.first), first_code_(first_code), first_is_named_(true)
    {
    }

    // The next option code; 0 ends the list.
    int next()
    {
        code_ = first_is_named_ ? first_code_ : va_arg(list_.arguments, int);
        first_is_named_ = false;
        position_ = next_position_;
        next_position_ += rule_.per_code;
        return code_;
    }

    int integer()
    {
        count_value();
        return va_arg(list_.arguments, int);
    }

    // A float option is passed as a double.
    double real()
    {
        count_value();
        return va_arg(list_.arguments, double);
    }

    // A pointer that must not be null: an array of the caller's, a stream, a variable to store in.
    template <class T> T *pointer(const char *option_name)
    {
        T *value = pointer_or_null<T>();
        check_not_null(value, option_name);
        return value;
    }

    template <class T> T *pointer_or_null()
    {
        count_value();
        return va_arg(list_.arguments, T *);
    }

    // The caller's pointer of a plain output option. It is null from now on, so that no stale pointer is left there
    // when the call fails.
    template <class T> T **output(const char *option_name)
    {
        T **users = pointer<T *>(option_name);
        if (users != nullptr) *users = nullptr;
        return users;
    }

    template <class Procedure> Procedure procedure()
    {
        count_value();
        return va_arg(list_.arguments, Procedure);
    }

    void unknown(long error_code) const
    {
        tavik_e1sti(1, code_);
        tavik_e1sti(2, position_);
        tavik_ermes(terminal, error_code);
    }

private:
    void count_value()
    {
        next_position_ += rule_.per_value;
    }

    ArgumentList &list_;
    PositionRule rule_;
    int next_position_;
    int position_ = 0;
    int code_ = 0;
    int first_code_ = 0;
    bool first_is_named_ = false;
};

// An output in one of its two forms: the caller's pointer or array. Of several, the last one given holds.
template <class T> struct Output {
    T **pointer = nullptr, *array = nullptr;

    bool wanted() const
    {
        return pointer != nullptr || array != nullptr;
    }

    void read_pointer(OptionReader &reader, const char *name)
    {
        *this = {reader.output<T>(name), nullptr};
    }

    void read_array(OptionReader &reader, const char *name)
    {
        *this = {nullptr, reader.pointer<T>(name)};
    }
};

// For lists of any length that act in their order: they are read once for unknown codes and null pointers and, if there
// are none, once more to act. So a list with such a fault changes nothing, and no list needs memory.
enum class Pass { check, act };

// The worker walks the list and acts in the pass for that; it returns false when the list is at fault.
template <class Worker> void check_then_act(int first_code, ArgumentList &list, const Worker &worker)
{
    ArgumentList again;
    va_copy(again.arguments, list.arguments);
    if (worker(OptionReader(first_code, list, count_codes), Pass::check))
        worker(OptionReader(first_code, again, count_codes), Pass::act);
    va_end(again.arguments);
}

} // namespace tavik
