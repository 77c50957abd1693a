// basic_istream: sentries, number extraction, unformatted extraction,
// characters, words and lines (also into the library's strings);
// basic_iostream.
#include "number_input.h"
#include "stream_guard.h"

#include <uvt/ios>
#include <uvt/string>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <limits>

namespace uvt {

namespace {

// The end of the next `limit` characters of the get area (no further than
// its end), computed without forming a pointer beyond it.
template <class C>
const C* get_area_limit(const basic_streambuf<C>& sb, streamsize limit) noexcept
{
    const C* next = sb.get_area_next_();
    return next + std::min<streamsize>(sb.get_area_end_() - next, std::max<streamsize>(limit, 0));
}

// Where scan_input stopped: before the delimiter, after `limit`
// characters, or at the end of the input.
enum class scan_stop { delimiter, limit, end };

// The first `delim` in [first, last), or last.
template <class C>
const C* find_delimiter(const C* first, const C* last, C delim) noexcept
{
    if (first == last) // also an empty get area, whose pointers may be null
        return last;
    const void* found;
    if constexpr (sizeof(C) == 1)
        found = std::memchr(first, static_cast<unsigned char>(delim), static_cast<std::size_t>(last - first));
    else
        found = std::wmemchr(first, delim, static_cast<std::size_t>(last - first));
    return found ? static_cast<const C*>(found) : last;
}

// The scan under getline, get, getstring and ignore: hands the characters
// of `sb` to `take(run, count)` until `limit` were taken, the next one is
// `*delim` (left in the input; no delimiter when null) or the input ends.
// Runs are taken straight from the get area, the delimiter found by
// memchr/wmemchr, and the area is refilled through sgetc; a buffer without
// get area gives one character at a time through sgetc and sbumpc. A
// `take` that throws leaves its run in the input.
template <class C, class Take>
scan_stop scan_input(basic_streambuf<C>& sb, streamsize limit, const C* delim, Take take)
{
    using traits = impl::stream_traits<C>;
    for (streamsize taken = 0;;) {
        const C* next = sb.get_area_next_();
        const C* end = get_area_limit(sb, limit - taken);
        const C* stop = delim ? find_delimiter(next, end, *delim) : end;
        if (stop != next) {
            take(next, stop - next);
            taken += stop - next;
            sb.get_area_consume_(stop - next);
        }
        if (stop != end)
            return scan_stop::delimiter;
        if (taken == limit)
            return scan_stop::limit;
        const typename traits::int_type c = sb.sgetc();
        if (c == traits::eof())
            return scan_stop::end;
        if (sb.get_area_next_() == sb.get_area_end_()) { // a buffer without get area
            const C ch = traits::to_char_type(c);
            if (delim && ch == *delim)
                return scan_stop::delimiter;
            take(&ch, 1);
            ++taken;
            sb.sbumpc();
        }
    }
}

template <class C>
bool is_space(const ios_base& s, typename impl::stream_traits<C>::int_type c)
{
    return c != impl::stream_traits<C>::eof() &&
           impl::conventions_of<C>(s).is_space(impl::stream_traits<C>::to_char_type(c));
}

// Consumes blanks; returns eofbit when the input ended among them. Scans
// the get area directly and refills it through sgetc.
template <class C>
ios_base::iostate skip_blanks(basic_streambuf<C>& sb, const ios_base& s)
{
    const impl::numeric_conventions<C>& conv = impl::conventions_of<C>(s);
    for (;;) {
        const C* next = sb.get_area_next_();
        const C* end = sb.get_area_end_();
        const C* blank_end = std::find_if_not(next, end, [&](C c) { return conv.is_space(c); });
        sb.get_area_consume_(blank_end - next);
        if (blank_end != end)
            return ios_base::goodbit;
        const auto c = sb.sgetc();
        if (c == impl::stream_traits<C>::eof())
            return ios_base::eofbit;
        if (sb.get_area_next_() == sb.get_area_end_()) { // a buffer without get area
            if (!is_space<C>(s, c))
                return ios_base::goodbit;
            sb.sbumpc();
        }
    }
}

} // namespace

// ----------------------------------------------------------------- sentry

// Inlined into every extraction (as are unformatted_ and guarded_): on a
// good stream without a tie it is a few loads and tests, which a call
// would double for a short line.
template <class C>
[[gnu::always_inline]] inline basic_istream<C>::sentry::sentry(basic_istream& is, bool noskipws) : ok_(false)
{
    ios_base::iostate err = ios_base::goodbit;
    if (is.good()) {
        if (is.tie())
            is.tie()->flush();
        if (!noskipws && (is.flags() & ios_base::skipws))
            is.guarded_([&] { err = skip_blanks(*is.rdbuf(), is); });
    }
    if (is.good() && err == ios_base::goodbit)
        ok_ = true;
    else
        is.setstate(err | ios_base::failbit);
}

// ---------------------------------------------------- formatted extraction

// Runs `op` under a sentry that skips blanks by the flags; `op` returns
// the state bits to add.
template <class C>
template <class Op>
basic_istream<C>& basic_istream<C>::formatted_(Op op)
{
    ios_base::iostate err = ios_base::goodbit;
    const sentry ok(*this);
    if (ok)
        this->guarded_([&] { err = op(*this->rdbuf()); });
    if (err)
        this->setstate(err);
    return *this;
}

namespace {

// A long read for a narrower signed type: out of its range, failbit and
// the nearer limit.
template <class T>
ios_base::iostate narrow_saturated(long wide, ios_base::iostate err, T& v)
{
    if (wide < std::numeric_limits<T>::min()) {
        v = std::numeric_limits<T>::min();
        return err | ios_base::failbit;
    }
    if (wide > std::numeric_limits<T>::max()) {
        v = std::numeric_limits<T>::max();
        return err | ios_base::failbit;
    }
    v = static_cast<T>(wide);
    return err;
}

} // namespace

template <class C>
basic_istream<C>& basic_istream<C>::operator>>(bool& v)
{
    return formatted_([&](basic_streambuf<C>& sb) { return impl::read_bool(sb, *this, v); });
}

template <class C>
basic_istream<C>& basic_istream<C>::operator>>(short& v)
{
    return formatted_([&](basic_streambuf<C>& sb) {
        long wide = 0;
        const ios_base::iostate err = impl::read_integer(sb, this->flags(), wide);
        return narrow_saturated(wide, err, v);
    });
}

template <class C>
basic_istream<C>& basic_istream<C>::operator>>(int& v)
{
    return formatted_([&](basic_streambuf<C>& sb) {
        long wide = 0;
        const ios_base::iostate err = impl::read_integer(sb, this->flags(), wide);
        return narrow_saturated(wide, err, v);
    });
}

#define UVT_INTEGER_EXTRACTOR(T) \
    template <class C> \
    basic_istream<C>& basic_istream<C>::operator>>(T& v) \
    { \
        return formatted_([&](basic_streambuf<C>& sb) { return impl::read_integer(sb, this->flags(), v); }); \
    }

UVT_INTEGER_EXTRACTOR(unsigned short)
UVT_INTEGER_EXTRACTOR(unsigned int)
UVT_INTEGER_EXTRACTOR(long)
UVT_INTEGER_EXTRACTOR(unsigned long)
UVT_INTEGER_EXTRACTOR(long long)
UVT_INTEGER_EXTRACTOR(unsigned long long)

#undef UVT_INTEGER_EXTRACTOR

template <class C>
basic_istream<C>& basic_istream<C>::operator>>(float& v)
{
    return formatted_([&](basic_streambuf<C>& sb) { return impl::read_floating(sb, *this, v); });
}

template <class C>
basic_istream<C>& basic_istream<C>::operator>>(double& v)
{
    return formatted_([&](basic_streambuf<C>& sb) { return impl::read_floating(sb, *this, v); });
}

template <class C>
basic_istream<C>& basic_istream<C>::operator>>(long double& v)
{
    return formatted_([&](basic_streambuf<C>& sb) { return impl::read_floating(sb, *this, v); });
}

template <class C>
basic_istream<C>& basic_istream<C>::operator>>(void*& p)
{
    return formatted_([&](basic_streambuf<C>& sb) {
        unsigned long address = 0;
        const ios_base::iostate err =
            impl::read_integer(sb, (this->flags() & ~ios_base::basefield) | ios_base::hex, address);
        p = reinterpret_cast<void*>(address);
        return err;
    });
}

// -------------------------------------------------- unformatted extraction

// Runs `op` under a sentry that does not skip blanks, with gcount() reset;
// `op` returns the state bits to add. `clear_eof` clears eofbit first (as
// putback, unget and seekg do).
template <class C>
template <class Op>
[[gnu::always_inline]] inline basic_istream<C>& basic_istream<C>::unformatted_(Op op, bool clear_eof)
{
    gcount_ = 0;
    if (clear_eof)
        this->clear(this->rdstate() & ~ios_base::eofbit);
    ios_base::iostate err = ios_base::goodbit;
    const sentry ok(*this, true);
    if (ok)
        this->guarded_([&] { err = op(*this->rdbuf()); });
    if (err)
        this->setstate(err);
    return *this;
}

template <class C>
typename basic_istream<C>::int_type basic_istream<C>::get()
{
    int_type c = traits_type::eof();
    unformatted_([&](basic_streambuf<C>& sb) -> ios_base::iostate {
        c = sb.sbumpc();
        if (c == traits_type::eof())
            return ios_base::eofbit | ios_base::failbit;
        gcount_ = 1;
        return ios_base::goodbit;
    });
    return c;
}

template <class C>
basic_istream<C>& basic_istream<C>::get(C& c)
{
    const int_type i = get();
    if (i != traits_type::eof())
        c = traits_type::to_char_type(i);
    return *this;
}

template <class C>
basic_istream<C>& basic_istream<C>::get(C* s, streamsize n, C delim)
{
    unformatted_([&](basic_streambuf<C>& sb) -> ios_base::iostate {
        const scan_stop stop = scan_input(sb, std::max<streamsize>(n - 1, 0), &delim, [&](const C* run, streamsize k) {
            std::copy(run, run + k, s + gcount_);
            gcount_ += k;
        });
        return stop == scan_stop::end ? ios_base::eofbit : ios_base::goodbit;
    });
    if (n > 0)
        s[gcount_] = C();
    if (gcount_ == 0)
        this->setstate(ios_base::failbit);
    return *this;
}

template <class C>
basic_istream<C>& basic_istream<C>::get(basic_streambuf<C>& target, C delim)
{
    unformatted_([&](basic_streambuf<C>& sb) -> ios_base::iostate {
        for (int_type c = sb.sgetc();; c = sb.snextc()) {
            if (c == traits_type::eof())
                return ios_base::eofbit;
            if (traits_type::to_char_type(c) == delim)
                return ios_base::goodbit;
            // A refusing (or throwing) target ends the extraction; the
            // character stays in the input.
            try {
                if (target.sputc(traits_type::to_char_type(c)) == traits_type::eof())
                    return ios_base::goodbit;
            } catch (...) {
                impl::absorb_current_exception();
                return ios_base::goodbit;
            }
            ++gcount_;
        }
    });
    if (gcount_ == 0)
        this->setstate(ios_base::failbit);
    return *this;
}

template <class C>
basic_istream<C>& basic_istream<C>::getline(C* s, streamsize n, C delim)
{
    streamsize stored = 0;
    unformatted_([&](basic_streambuf<C>& sb) -> ios_base::iostate {
        const scan_stop stop = scan_input(sb, std::max<streamsize>(n - 1, 0), &delim, [&](const C* run, streamsize k) {
            std::copy(run, run + k, s + stored);
            stored += k;
            gcount_ += k;
        });
        if (stop == scan_stop::end)
            return ios_base::eofbit;
        if (stop == scan_stop::limit) {
            // The line filled `s`: only its delimiter may follow.
            const int_type c = sb.sgetc();
            if (c == traits_type::eof())
                return ios_base::eofbit;
            if (traits_type::to_char_type(c) != delim)
                return ios_base::failbit;
        }
        sb.sbumpc();
        ++gcount_;
        return ios_base::goodbit;
    });
    if (n > 0)
        s[stored] = C();
    if (gcount_ == 0)
        this->setstate(ios_base::failbit);
    return *this;
}

template <class C>
basic_istream<C>& basic_istream<C>::getstring(basic_string<C>& s, C delim)
{
    unformatted_([&](basic_streambuf<C>& sb) -> ios_base::iostate {
        s.clear();
        const scan_stop stop =
            scan_input(sb, std::numeric_limits<streamsize>::max(), &delim, [&](const C* run, streamsize k) {
                s.append(run, static_cast<std::size_t>(k));
                gcount_ += k;
            });
        if (stop == scan_stop::end)
            return ios_base::eofbit;
        sb.sbumpc();
        ++gcount_;
        return ios_base::goodbit;
    });
    if (gcount_ == 0)
        this->setstate(ios_base::failbit);
    return *this;
}

template <class C>
basic_istream<C>& basic_istream<C>::ignore(streamsize n, int_type delim)
{
    // A delimiter outside the character type's values never matches.
    const C delim_char = traits_type::to_char_type(delim);
    const bool has_delim = delim != traits_type::eof() && traits_type::to_int_type(delim_char) == delim;
    return unformatted_([&](basic_streambuf<C>& sb) -> ios_base::iostate {
        const scan_stop stop = scan_input(sb, std::max<streamsize>(n, 0), has_delim ? &delim_char : nullptr,
                                          [&](const C*, streamsize k) { gcount_ += k; });
        if (stop == scan_stop::end)
            return ios_base::eofbit;
        if (stop == scan_stop::delimiter) {
            sb.sbumpc();
            ++gcount_;
        }
        return ios_base::goodbit;
    });
}

template <class C>
typename basic_istream<C>::int_type basic_istream<C>::peek()
{
    int_type c = traits_type::eof();
    unformatted_([&](basic_streambuf<C>& sb) -> ios_base::iostate {
        c = sb.sgetc();
        return c == traits_type::eof() ? ios_base::eofbit : ios_base::goodbit;
    });
    return c;
}

template <class C>
basic_istream<C>& basic_istream<C>::read(C* s, streamsize n)
{
    return unformatted_([&](basic_streambuf<C>& sb) -> ios_base::iostate {
        gcount_ = sb.sgetn(s, n);
        return gcount_ == n ? ios_base::goodbit : ios_base::eofbit | ios_base::failbit;
    });
}

template <class C>
streamsize basic_istream<C>::readsome(C* s, streamsize n)
{
    unformatted_([&](basic_streambuf<C>& sb) -> ios_base::iostate {
        const streamsize available = sb.in_avail();
        if (available == -1)
            return ios_base::eofbit;
        if (available > 0 && n > 0)
            gcount_ = sb.sgetn(s, std::min(available, n));
        return ios_base::goodbit;
    });
    return gcount_;
}

template <class C>
basic_istream<C>& basic_istream<C>::putback(C c)
{
    return unformatted_(
        [&](basic_streambuf<C>& sb) -> ios_base::iostate {
            return sb.sputbackc(c) == traits_type::eof() ? ios_base::badbit : ios_base::goodbit;
        },
        true);
}

template <class C>
basic_istream<C>& basic_istream<C>::unget()
{
    return unformatted_(
        [&](basic_streambuf<C>& sb) -> ios_base::iostate {
            return sb.sungetc() == traits_type::eof() ? ios_base::badbit : ios_base::goodbit;
        },
        true);
}

// sync, tellg and seekg leave gcount() as it is.
template <class C>
int basic_istream<C>::sync()
{
    if (!this->rdbuf())
        return -1;
    const streamsize count = gcount_;
    int result = -1;
    unformatted_([&](basic_streambuf<C>& sb) -> ios_base::iostate {
        if (sb.pubsync() == -1)
            return ios_base::badbit;
        result = 0;
        return ios_base::goodbit;
    });
    gcount_ = count;
    return result;
}

template <class C>
streampos basic_istream<C>::tellg()
{
    const streamsize count = gcount_;
    streampos pos = -1;
    unformatted_([&](basic_streambuf<C>& sb) -> ios_base::iostate {
        pos = sb.pubseekoff(0, ios_base::cur, ios_base::in);
        return ios_base::goodbit;
    });
    gcount_ = count;
    return pos;
}

template <class C>
basic_istream<C>& basic_istream<C>::seekg(streampos pos)
{
    const streamsize count = gcount_;
    unformatted_(
        [&](basic_streambuf<C>& sb) -> ios_base::iostate {
            return sb.pubseekpos(pos, ios_base::in) == -1 ? ios_base::failbit : ios_base::goodbit;
        },
        true);
    gcount_ = count;
    return *this;
}

template <class C>
basic_istream<C>& basic_istream<C>::seekg(streamoff off, ios_base::seekdir dir)
{
    const streamsize count = gcount_;
    unformatted_(
        [&](basic_streambuf<C>& sb) -> ios_base::iostate {
            return sb.pubseekoff(off, dir, ios_base::in) == -1 ? ios_base::failbit : ios_base::goodbit;
        },
        true);
    gcount_ = count;
    return *this;
}

// ----------------------------------------------- characters and words

template <class C>
basic_istream<C>& operator>>(basic_istream<C>& is, C& c)
{
    using traits = impl::stream_traits<C>;
    ios_base::iostate err = ios_base::goodbit;
    const typename basic_istream<C>::sentry ok(is);
    if (ok) {
        is.guarded_([&] {
            const typename traits::int_type i = is.rdbuf()->sbumpc();
            if (i == traits::eof())
                err = ios_base::eofbit | ios_base::failbit;
            else
                c = traits::to_char_type(i);
        });
    }
    if (err)
        is.setstate(err);
    return is;
}

namespace {

// Extracts a word (up to `limit` characters, stopping before a blank or at
// the end) under a skipping sentry, passing each run of characters to
// `store(first, count)`; resets the width and sets eofbit and failbit as
// the word extractors do. `prepare` runs once the sentry has succeeded.
template <class C, class Prepare, class Store>
basic_istream<C>& extract_word(basic_istream<C>& is, streamsize limit, Prepare prepare, Store store)
{
    using traits = impl::stream_traits<C>;
    ios_base::iostate err = ios_base::goodbit;
    streamsize stored = 0;
    const typename basic_istream<C>::sentry ok(is);
    if (ok) {
        is.guarded_([&] {
            prepare();
            basic_streambuf<C>& sb = *is.rdbuf();
            const impl::numeric_conventions<C>& conv = impl::conventions_of<C>(is);
            while (stored < limit) {
                const C* next = sb.get_area_next_();
                const C* end = get_area_limit(sb, limit - stored);
                const C* stop = std::find_if(next, end, [&](C c) { return conv.is_space(c); });
                store(next, stop - next);
                stored += stop - next;
                sb.get_area_consume_(stop - next);
                if (stop != end || stored == limit)
                    break;
                const typename traits::int_type c = sb.sgetc();
                if (c == traits::eof()) {
                    err = ios_base::eofbit;
                    break;
                }
                if (sb.get_area_next_() == sb.get_area_end_()) { // a buffer without get area
                    if (is_space<C>(is, c))
                        break;
                    const C ch = traits::to_char_type(c);
                    store(&ch, 1);
                    ++stored;
                    sb.sbumpc();
                }
            }
        });
        is.width(0);
    }
    if (stored == 0)
        err |= ios_base::failbit;
    is.setstate(err);
    return is;
}

} // namespace

template <class C>
basic_istream<C>& operator>>(basic_istream<C>& is, C* s)
{
    const streamsize limit = is.width() > 0 ? is.width() - 1 : std::numeric_limits<streamsize>::max() - 1;
    C* out = s;
    return extract_word(
        is, limit, [&] { *out = C(); },
        [&](const C* p, streamsize n) {
            out = std::copy(p, p + n, out);
            *out = C();
        });
}

template <class C>
basic_istream<C>& operator>>(basic_istream<C>& is, basic_string<C>& s)
{
    const streamsize limit = is.width() > 0 ? is.width() : static_cast<streamsize>(s.max_size());
    return extract_word(
        is, limit, [&] { s.clear(); }, [&](const C* p, streamsize n) { s.append(p, static_cast<std::size_t>(n)); });
}

template <class C>
basic_istream<C>& ws(basic_istream<C>& is)
{
    ios_base::iostate err = ios_base::goodbit;
    const typename basic_istream<C>::sentry ok(is, true);
    if (ok)
        is.guarded_([&] { err = skip_blanks(*is.rdbuf(), is); });
    if (err)
        is.setstate(err);
    return is;
}

template <class C>
basic_iostream<C>::~basic_iostream() = default;

template class basic_istream<char>;
template class basic_istream<wchar_t>;
template class basic_iostream<char>;
template class basic_iostream<wchar_t>;

template UVT_API basic_istream<char>& operator>>(basic_istream<char>&, char&);
template UVT_API basic_istream<wchar_t>& operator>>(basic_istream<wchar_t>&, wchar_t&);
template UVT_API basic_istream<char>& operator>>(basic_istream<char>&, char*);
template UVT_API basic_istream<wchar_t>& operator>>(basic_istream<wchar_t>&, wchar_t*);
template UVT_API basic_istream<char>& operator>>(basic_istream<char>&, basic_string<char>&);
template UVT_API basic_istream<wchar_t>& operator>>(basic_istream<wchar_t>&, basic_string<wchar_t>&);
template UVT_API basic_istream<char>& ws(basic_istream<char>&);
template UVT_API basic_istream<wchar_t>& ws(basic_istream<wchar_t>&);

} // namespace uvt
