// A fuzzer's input, from which a harness takes what its program needs next. When it runs out, bytes are 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

class Bytes {
public:
    Bytes(const uint8_t *data, size_t size) : data_(data), size_(size)
    {
    }

    bool any() const
    {
        return size_ > 0;
    }

    int byte()
    {
        return size_ == 0 ? 0 : (--size_, *data_++);
    }

    // True once in n bytes.
    bool once_in(int n)
    {
        return byte() % n == 1;
    }

    // Elements from the bytes; when these run out, the last one is repeated.
    template <class T, size_t n> const T *table(T (&values)[n])
    {
        T value{};
        for (T &element : values) {
            if (size_ >= sizeof(T)) {
                std::memcpy(&value, data_, sizeof value);
                data_ += sizeof(T);
                size_ -= sizeof(T);
            }
            element = value;
        }
        return values;
    }

private:
    const uint8_t *data_;
    size_t size_;
};
