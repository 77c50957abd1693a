// The serialised form of exceptions: writing (serialize, deflate) and
// rebuilding (deserialize, the default creator, inflate).
//
// The form is a sequence of 32-bit words, most significant byte first, and
// texts (a length word, then the bytes). A reader gets the expanded message
// texts, not the arguments, and each exception's stack trace as text.
// Failures found in the data are reported as runtime_error from the
// exception unit's file (impl::exception_unit_file) at fixed lines.

#include "exception_class.h"

#include <uvt/exception>
#include <uvt/impl/message_list>
#include <uvt/ios>
#include <uvt/new>
#include <uvt/strstream>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <utility>

namespace uvt {

namespace {

// Words that mark the parts of the payload.
constexpr std::uint32_t message_mark = 0xADDDEED2u;
constexpr std::uint32_t end_mark = 0xADDEDCABu;
constexpr std::uint32_t no_payload_mark = 0xDEFACED2u;
// The stack text of an exception written without stack.
constexpr std::uint32_t no_stack_text = 0;

// --- writing ---

void write_text(basic_ostream<char>& os, const char* text, std::size_t length)
{
    exception::write_int(os, static_cast<std::uint32_t>(length));
    os.write(text, static_cast<streamsize>(length));
}

// The words of a record (at most 4) and its file as a text (a null file as
// the empty text), the words and the length in one write of the stream.
void write_record(basic_ostream<char>& os, std::initializer_list<std::uint32_t> words, const char* file)
{
    const faultprot_cstring f(file);
    char bytes[20];
    char* b = bytes;
    auto put = [&b](std::uint32_t w) {
        for (int shift = 24; shift >= 0; shift -= 8)
            *b++ = static_cast<char>(w >> shift);
    };
    for (const std::uint32_t w : words)
        put(w);
    put(static_cast<std::uint32_t>(f.len()));
    os.write(bytes, b - bytes);
    f.print(os);
}

// Collects the texts of one payload chain (expanded messages, stack
// blocks) in a string stream, each written out as soon as it is complete.
class text_sink {
public:
    explicit text_sink(allocator& a) : texts_(a) {}

    basic_ostream<char>& stream() noexcept
    {
        start_ = texts_.size();
        return texts_;
    }
    // Writes what stream() collected since it was called, as a text.
    void write_collected(basic_ostream<char>& os)
    {
        if (texts_.bad())
            tThrow(bad_alloc(impl::exception_unit_file, __LINE__, "exception serialization", false));
        write_text(os, texts_.c_str() + start_, texts_.size() - start_);
    }

private:
    ostrstream texts_;
    std::size_t start_ = 0;
};

void deflate_message(basic_ostream<char>& os, const exception_node& n, text_sink& sink)
{
    write_record(os,
                 {message_mark, static_cast<std::uint32_t>(n.error_no), static_cast<std::uint32_t>(n.status),
                  static_cast<std::uint32_t>(n.line)},
                 n.file);
    msg_write_stream out(sink.stream());
    n.expand(out);
    sink.write_collected(os);
}

// --- reading ---

// The lines reported with bad data are part of the observable behaviour
// (callers match on them); they are not positions in this file.
constexpr int bad_type_tag_line = 1634;
constexpr int bad_class_marker_line = 1615;
constexpr int bad_message_mark_line = 1600;
constexpr int bad_end_mark_line = 1595;
constexpr int stream_ended_line = 1640;
constexpr int stack_text_too_long_line = 1645;

// A stack text is kept with its length in the payload's int frame count.
constexpr std::uint32_t max_stack_text = 0x7FFFFFFFu;
// Texts are read in pieces of this size at first, each piece twice the
// last, so that a length word promising more than the stream holds costs
// no more memory than the bytes that really arrive.
constexpr std::size_t first_piece = 64 * 1024;

const char* const imported_without_payload = "Bad allocation in exception object (imported)";

// runtime_error ERR_UVT_RUNTIME at `line` of the exception unit, with a
// second message of the same number: `text` with CURRENT and EXPECT.
[[noreturn]] void throw_bad_data(int line, const char* text, std::uint32_t current, std::uint32_t expect)
{
    const int number = uvt__ERR_UVT_RUNTIME().number();
    runtime_error e(impl::exception_unit_file, line, uvt__ERR_UVT_RUNTIME());
    e << error_message(impl::exception_unit_file, line, number, text) << message_argument<unsigned>("CURRENT", current)
      << message_argument<unsigned>("EXPECT", expect);
    tThrow(e);
}

[[noreturn]] void throw_bad_pattern(std::uint32_t current, std::uint32_t expect, int line)
{
    throw_bad_data(line, "Exception deserialization. Bad data pattern: $CURRENT$, expected: $EXPECT$", current, expect);
}

void expect_word(std::uint32_t current, std::uint32_t expect, int line)
{
    if (current != expect)
        throw_bad_pattern(current, expect, line);
}

// Reads exactly n bytes; a stream that ends first is reported with the
// bytes of the current item that did arrive (`before` of them earlier) out
// of the item's `total`.
void read_exactly(basic_istream<char>& is, char* to, std::size_t n, std::size_t before, std::size_t total)
{
    if (!n)
        return;
    is.read(to, static_cast<streamsize>(n));
    const auto got = static_cast<std::size_t>(is.gcount());
    if (got != n)
        throw_bad_data(stream_ended_line, "Exception deserialization. Stream ended early: $CURRENT$ of $EXPECT$ bytes",
                       static_cast<std::uint32_t>(before + got), static_cast<std::uint32_t>(total));
}

// Reads n words (write_int's byte order) with one read of the stream.
void read_words(basic_istream<char>& is, std::uint32_t* words, std::size_t n)
{
    unsigned char bytes[16];
    read_exactly(is, reinterpret_cast<char*>(bytes), 4 * n, 0, 4 * n);
    for (std::size_t i = 0; i < n; ++i) {
        const unsigned char* b = bytes + 4 * i;
        words[i] = std::uint32_t(b[0]) << 24 | std::uint32_t(b[1]) << 16 | std::uint32_t(b[2]) << 8 | b[3];
    }
}

// A block of an allocator, returned to it unless released.
class block_guard {
public:
    block_guard(allocator& a, void* p) noexcept : alloc_(a), p_(p) {}
    block_guard(const block_guard&) = delete;
    block_guard& operator=(const block_guard&) = delete;
    ~block_guard() { alloc_.deallocate(p_); }

    char* get() const noexcept { return static_cast<char*>(p_); }
    void replace(void* p) noexcept
    {
        alloc_.deallocate(p_);
        p_ = p;
    }
    char* release() noexcept { return static_cast<char*>(std::exchange(p_, nullptr)); }

private:
    allocator& alloc_;
    void* p_;
};

// Where a text goes in the block of the record that holds it.
std::size_t file_text_at(const void*) noexcept { return 0; }
std::size_t node_text_at(const void*) noexcept { return sizeof(exception_node); }
std::size_t payload_text_at(const void* block) noexcept
{
    return exception_data::offset_in(block) + sizeof(exception_data);
}

// Reads a text of `length` bytes into a new block of `a` of `space` +
// message_node::text_space(length) bytes, at text_at(block), terminated.
// The block grows piece by piece as bytes arrive.
char* read_text_block(basic_istream<char>& is, allocator& a, std::size_t space, std::uint32_t length,
                      std::size_t (*text_at)(const void*))
{
    const std::size_t full = space + message_node::text_space(length);
    std::size_t capacity = std::min(full, space + first_piece);
    block_guard block(a, a.allocate(capacity));
    std::size_t got = 0;
    for (;;) {
        const std::size_t wanted = std::min<std::size_t>(length, capacity - space);
        read_exactly(is, block.get() + text_at(block.get()) + got, wanted - got, got, length);
        got = wanted;
        if (got == length)
            break;
        capacity = std::min(full, space + 2 * (capacity - space));
        void* bigger = a.allocate(capacity);
        std::memcpy(static_cast<char*>(bigger) + text_at(bigger), block.get() + text_at(block.get()), got);
        block.replace(bigger);
    }
    block.get()[text_at(block.get()) + length] = '\0';
    return block.release();
}

// Rebuilds a chain of payloads from the messages and stack texts of the
// serialised form, with memory of `a`. What is built so far is destroyed
// with the reader unless the chain was taken.
class chain_reader {
public:
    chain_reader(basic_istream<char>& is, allocator& a) noexcept : is_(is), alloc_(a) {}
    chain_reader(const chain_reader&) = delete;
    chain_reader& operator=(const chain_reader&) = delete;
    ~chain_reader()
    {
        if (head_)
            exception_data::destroy_chain(head_);
    }

    std::uint32_t word() { return exception::read_int(is_); }

    // Reads the chain; the first message mark has been read.
    exception_data* read_chain()
    {
        exception_data* d = read_first_message(nullptr);
        exception_node* last = &d->first;
        for (;;) {
            const std::uint32_t w = word();
            if (w == message_mark) {
                last = read_further_message(last);
                continue;
            }
            read_stack_text(d, w);
            const std::uint32_t next = word();
            if (next != message_mark) {
                expect_word(next, end_mark, bad_end_mark_line);
                return std::exchange(head_, nullptr);
            }
            d = read_first_message(d);
            last = &d->first;
        }
    }

    // The payload of an exception written without one whose file is known:
    // its first message says so.
    exception_data* read_imported_failure(int error_no, int line, std::uint32_t file_length)
    {
        block_guard file(alloc_, read_text_block(is_, alloc_, 0, file_length, file_text_at));
        const std::size_t length = std::strlen(imported_without_payload);
        void* block = alloc_.allocate(exception_data::header_space + message_node::text_space(length));
        exception_data* d = exception_data::place(block, alloc_, error_no, 0);
        exception_node::construct(&d->first, file.release(), line, error_no, imported_without_payload);
        d->first.owns_file = true;
        return d;
    }

private:
    struct node_header {
        int error_no;
        int status;
        int line;
        std::uint32_t file_length;
    };

    // The four words in one read: error number, status, line, file length.
    node_header read_node_header()
    {
        std::uint32_t w[4];
        read_words(is_, w, 4);
        return {static_cast<int>(w[0]), static_cast<int>(w[1]), static_cast<int>(w[2]), w[3]};
    }

    char* read_file(std::uint32_t length)
    {
        return length ? read_text_block(is_, alloc_, 0, length, file_text_at) : nullptr;
    }

    // Starts the next payload of the chain (after `pred`, or the head).
    exception_data* read_first_message(exception_data* pred)
    {
        const node_header h = read_node_header();
        block_guard file(alloc_, read_file(h.file_length));
        const std::uint32_t length = word();
        char* block = read_text_block(is_, alloc_, exception_data::header_space, length, payload_text_at);
        exception_data* d = exception_data::place(block, alloc_, h.error_no, 0);
        if (pred)
            d->follow(pred);
        else
            head_ = d;
        fill_node(d->first, h, file.release(), length);
        return d;
    }

    exception_node* read_further_message(exception_node* last)
    {
        const node_header h = read_node_header();
        block_guard file(alloc_, read_file(h.file_length));
        const std::uint32_t length = word();
        auto* n = reinterpret_cast<exception_node*>(
            read_text_block(is_, alloc_, sizeof(exception_node), length, node_text_at));
        fill_node(*n, h, file.release(), length);
        last->next = n;
        return n;
    }

    // The node's text is in place already.
    static void fill_node(exception_node& n, const node_header& h, const char* file, std::uint32_t length) noexcept
    {
        n.next = nullptr;
        n.file = file;
        n.line = h.line;
        n.error_no = h.error_no;
        n.status = h.status;
        n.owns_file = file != nullptr;
        n.has_message = true;
        n.message.head = n.message.tail = nullptr;
        n.message.length = length;
    }

    void read_stack_text(exception_data* d, std::uint32_t length)
    {
        if (!length)
            return;
        if (length > max_stack_text)
            throw_bad_data(stack_text_too_long_line,
                           "Exception deserialization. Stack text too long: $CURRENT$, limit: $EXPECT$", length,
                           max_stack_text);
        d->stack = read_text_block(is_, alloc_, 0, length, file_text_at);
        d->frame_count = static_cast<int>(length);
    }

    basic_istream<char>& is_;
    allocator& alloc_;
    exception_data* head_ = nullptr;
};

} // namespace

void impl::read_class_marker(basic_istream<char>& is)
{
    expect_word(exception::read_int(is), class_marker, bad_class_marker_line);
}

void exception::write_int(basic_ostream<char>& os, std::uint32_t v)
{
    const char bytes[4] = {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                           static_cast<char>(v)};
    os.write(bytes, 4);
}

void exception::store_type(basic_ostream<char>& os) const { impl::write_type_header(os, type_number); }

void exception::serialize(basic_ostream<char>& os, bool no_stack) const
{
    store_type(os);
    deflate(os, no_stack);
}

void exception::deflate(basic_ostream<char>& os, bool no_stack) const
{
    const exception_data* d = payload_();
    if (!d) {
        write_record(os, {no_payload_mark, static_cast<std::uint32_t>(error_no_), static_cast<std::uint32_t>(line_)},
                     file_);
        return;
    }
    // The texts live only while they are written; the payload's own
    // allocator is the one an exception may use (for bad_alloc: the reserve).
    text_sink sink(*d->alloc);
    for (; d; d = d->successor()) {
        for (const exception_node* n = &d->first; n; n = n->next)
            deflate_message(os, *n, sink);
        if (no_stack) {
            write_int(os, no_stack_text);
        } else {
            impl::write_throw_location(sink.stream(), d);
            sink.write_collected(os);
        }
    }
    write_int(os, end_mark);
}

std::uint32_t exception::read_int(basic_istream<char>& is)
{
    std::uint32_t w;
    read_words(is, &w, 1);
    return w;
}

auto_ptr<exception> exception::deserialize(basic_istream<char>& is, allocator& a)
{
    const std::uint32_t tag = read_int(is);
    if ((tag >> 16) != (impl::type_tag_base >> 16))
        throw_bad_pattern(tag, impl::type_tag_base, bad_type_tag_line);
    const exception_creator registered = exception_by_type(static_cast<unsigned short>(tag));
    auto_ptr<exception> e = (registered ? registered : default_creator)(is, a);
    e->inflate(is);
    return e;
}

auto_ptr<exception> exception::default_creator(basic_istream<char>& is, allocator& a)
{
    return impl::plain_creator<exception>(is, a);
}

void exception::inflate(basic_istream<char>& is)
{
    release_();
    chain_reader reader(is, default_allocator());
    const std::uint32_t first = reader.word();
    exception_data* d = nullptr;
    if (first == no_payload_mark) {
        error_no_ = static_cast<int>(reader.word());
        line_ = static_cast<int>(reader.word());
        file_ = nullptr;
        if (const std::uint32_t file_length = reader.word())
            d = reader.read_imported_failure(error_no_, line_, file_length);
    } else {
        expect_word(first, message_mark, bad_message_mark_line);
        d = reader.read_chain();
    }
    data_ = d;
    if (!d)
        return;
    current_ = d->last_node();
    file_ = d->first.file;
    line_ = d->first.line;
    error_no_ = d->first.error_no;
}

} // namespace uvt
