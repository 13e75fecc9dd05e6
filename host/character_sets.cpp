// GB2312 and UTF-8 by way of the C library's iconv. A descriptor is made for each call: that is quick after the first.
#include <errno.h>
#include <iconv.h>
#include <pthread.h>
#include <string.h>

#include <velkor_host.h>

#include "lock_guard.h"

namespace {

constexpr int MODE = 1;

// The C library finds its converters under a lock of its own, which a forked child would inherit locked, and wait for
// ever. So they are opened and closed under this lock, and a fork holds it.
pthread_mutex_t converters_lock = PTHREAD_MUTEX_INITIALIZER;

__attribute__((constructor)) void survive_fork() {
    pthread_atfork([] { pthread_mutex_lock(&converters_lock); }, [] { pthread_mutex_unlock(&converters_lock); },
                   [] { pthread_mutex_unlock(&converters_lock); });
}

iconv_t open_converter(const char *to, const char *from) {
    const velkor_host::LockGuard guard(converters_lock);
    return iconv_open(to, from);
}

void close_converter(iconv_t converter) {
    const velkor_host::LockGuard guard(converters_lock);
    iconv_close(converter);
}

class Converter {
public:
    Converter(const char *to, const char *from) : descriptor_(open_converter(to, from)) {}
    ~Converter() {
        if (*this) {
            close_converter(descriptor_);
        }
    }
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;

    // A pointer in some C libraries, a number in others.
    explicit operator bool() const { return descriptor_ != (iconv_t)-1; }  // NOLINT(performance-no-int-to-ptr)

    // Writes whole characters only, and the terminator behind them.
    int convert(const char *in, char *out, size_t size) const {
        char *from = const_cast<char *>(in);  // iconv() takes it so, and changes nothing
        size_t left = strlen(in);
        char *to = out;
        size_t room = size - 1;
        const bool is_whole = iconv(descriptor_, &from, &left, &to, &room) != static_cast<size_t>(-1);
        const int fault = errno;
        *to = '\0';
        if (is_whole) {
            return static_cast<int>(to - out);
        }
        return fault == E2BIG ? VELKOR_HOST_TEXT_NO_ROOM : VELKOR_HOST_TEXT_BAD_SEQUENCE;
    }

private:
    iconv_t descriptor_;
};

int convert(const char *to_set, const char *from_set, const char *in, char *out, int size) {
    if (in == nullptr || out == nullptr || size <= 0) {
        return VELKOR_HOST_TEXT_BAD_ARGUMENT;
    }
    const Converter converter(to_set, from_set);
    if (!converter) {
        *out = '\0';
        return VELKOR_HOST_TEXT_NO_CONVERTER;
    }
    return converter.convert(in, out, static_cast<size_t>(size));
}

}  // namespace

int GB2312ToUTF8(const char *in, char *out, int size, int mode) {
    return mode == MODE ? convert("UTF-8", "GB2312", in, out, size) : VELKOR_HOST_TEXT_BAD_ARGUMENT;
}

int UTF8ToGB2312(const char *in, char *out, int size) { return convert("GB2312", "UTF-8", in, out, size); }
