// Placeholder expansion of message templates and its two sinks (a fixed
// buffer and a stream).

#include <uvt/impl/message_list>
#include <uvt/ios>

#include <cstring>

namespace uvt {

namespace {

// The parameter list of one expansion, in two sections: the parameters used
// so far at the front, in order of use, and the unused ones behind them.
class parameter_sections {
public:
    parameter_sections(msg_parameter*& head, msg_parameter*& tail) noexcept : head_(head), tail_(tail) {}

    msg_parameter* first_unused() const noexcept { return used_tail_ ? used_tail_->next : head_; }

    // The parameter whose value replaces the placeholder `name`, or null
    // when it stays literal. The parameters it uses become used.
    const msg_parameter* take(const char* name, std::size_t length) noexcept
    {
        msg_parameter* p = find(first_unused(), name, length, false);
        if (!p)
            return nullptr;
        msg_parameter* replacement = p->replace ? nullptr : find(p->next, name, length, true);
        mark_used(p);
        if (!replacement)
            return p;
        mark_used(replacement);
        return replacement;
    }

private:
    static msg_parameter* find(msg_parameter* from, const char* name, std::size_t length,
                               bool replacement_only) noexcept
    {
        for (msg_parameter* p = from; p; p = p->next) {
            if (p->name_length == length && std::memcmp(p->name, name, length) == 0 &&
                (p->replace || !replacement_only))
                return p;
        }
        return nullptr;
    }

    msg_parameter* predecessor(const msg_parameter* p) const noexcept
    {
        msg_parameter* prev = nullptr;
        for (msg_parameter* q = head_; q != p; q = q->next)
            prev = q;
        return prev;
    }

    // Moves the unused parameter p to the end of the used section. Lists are
    // short, so finding its predecessor by a scan is cheaper than keeping
    // back links in every parameter.
    void mark_used(msg_parameter* p) noexcept
    {
        msg_parameter* prev = predecessor(p);
        if (prev != used_tail_) {
            prev->next = p->next;
            if (tail_ == p)
                tail_ = prev;
            msg_parameter*& slot = used_tail_ ? used_tail_->next : head_;
            p->next = slot;
            slot = p;
        }
        used_tail_ = p;
    }

    msg_parameter*& head_;
    msg_parameter*& tail_;
    msg_parameter* used_tail_ = nullptr;
};

// Writes text[from, to) when it is not empty.
bool write_run(msg_output& out, const char* text, std::size_t from, std::size_t to)
{
    return from >= to || out.write(text + from, to - from);
}

// The walk over the template; false when the output stopped it.
bool expand_text(const char* text, std::size_t length, msg_output& out, parameter_sections& params)
{
    std::size_t run = 0; // start of the literal run not yet written
    std::size_t i = 0;
    while (i < length) {
        if (text[i] == '\\') {
            // The backslash is dropped; the character after it starts the
            // next run whatever it is.
            if (!write_run(out, text, run, i))
                return false;
            run = i + 1;
            i += 2;
            continue;
        }
        if (text[i] != '$') {
            ++i;
            continue;
        }
        if (!write_run(out, text, run, i))
            return false;
        const char* name = text + i + 1;
        const char* close = static_cast<const char*>(std::memchr(name, '$', length - i - 1));
        if (!close || close == name)
            return true; // the rest of the text is dropped
        const std::size_t after = static_cast<std::size_t>(close - text) + 1;
        const msg_parameter* p = params.take(name, static_cast<std::size_t>(close - name));
        if (p && !out.write(p->value(), p->value_length))
            return false;
        run = p ? after : i; // an unknown placeholder stays in the literal run
        i = after;
    }
    return write_run(out, text, run, length);
}

std::size_t strip_line_end(const char* value, std::size_t length)
{
    while (length && (value[length - 1] == ' ' || value[length - 1] == '\r' || value[length - 1] == '\n'))
        --length;
    return length;
}

} // namespace

void msg_parameter::expand(const char* text, std::size_t length, msg_output& out, msg_parameter*& head,
                           msg_parameter*& tail)
{
    parameter_sections params(head, tail);
    expand_text(text, length, out, params);
    for (const msg_parameter* p = params.first_unused(); p; p = p->next) {
        if (!out.remainder(p->name, p->name_length, p->value(), p->value_length))
            break;
    }
}

// --- fixed buffer ---

void msg_byte_stream::put(const char* bytes, std::size_t n) noexcept
{
    std::memcpy(buffer_ + used_, bytes, n);
    used_ += n;
}

bool msg_byte_stream::write(const char* bytes, std::size_t n)
{
    if (!fits(n))
        return false;
    put(bytes, n);
    return true;
}

bool msg_byte_stream::remainder(const char* name, std::size_t name_length, const char* value, std::size_t value_length)
{
    const std::size_t frame = name_length ? 5 : 2; // "; $" "$=" or ". "
    if (!fits(frame + name_length + value_length))
        return false;
    if (name_length) {
        put("; $", 3);
        put(name, name_length);
        put("$=", 2);
    } else {
        put(". ", 2);
    }
    put(value, value_length);
    return true;
}

// --- stream ---

void msg_write_stream::put(const char* bytes, std::size_t n)
{
    if (!n)
        return;
    os_.write(bytes, static_cast<streamsize>(n));
    last_ = bytes[n - 1];
}

void msg_write_stream::put(const char* text) { put(text, std::strlen(text)); }

bool msg_write_stream::write(const char* bytes, std::size_t n)
{
    put(bytes, n);
    return !os_.fail();
}

bool msg_write_stream::remainder(const char* name, std::size_t name_length, const char* value, std::size_t value_length)
{
    value_length = strip_line_end(value, value_length);
    const bool several_lines = std::memchr(value, '\n', value_length) != nullptr;
    if (name_length) {
        put(several_lines ? "\n$" : remainder_ended_line_ ? "$" : "; $");
        put(name, name_length);
        put(several_lines ? "$=\n" : "$=");
    } else if (several_lines) {
        put("\n");
    } else {
        put(value_length && value[value_length - 1] == '.' ? " " : ". ");
    }
    put(value, value_length);
    if (several_lines)
        put("\n");
    remainder_ended_line_ = several_lines;
    return !os_.fail();
}

// --- nodes ---

void exception_node::expand(msg_output& out) const
{
    if (has_message)
        message.expand(out);
    else if (plain_text)
        out.write(plain_text, std::strlen(plain_text));
}

std::size_t exception_node::expand(char* buffer, std::size_t size) const noexcept
{
    if (!size)
        return 0;
    msg_byte_stream out(buffer, size - 1);
    expand(out);
    buffer[out.written()] = '\0';
    return out.written();
}

} // namespace uvt
