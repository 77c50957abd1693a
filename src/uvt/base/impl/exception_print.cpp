// Printing of exceptions: the long and short layouts, status notes, the
// throw location block and the fixed text of an exception without payload.

#include "exception_class.h"

#include <uvt/exception>
#include <uvt/impl/message_list>
#include <uvt/import>
#include <uvt/ios>
#include <uvt/new>
#include <uvt/string>
#include <uvt/strstream>

#include <cstring>

namespace uvt {

namespace {

// Indexed by node status; index 0 stands for a missing payload.
const char* const lost_information_texts[] = {
    "Bad allocation in exception object",
    "Bad allocation in exception parameter",
    "Bad allocation in exception callback trace",
    "Bad allocation in exception message",
};

// Saves the caller's formatting, starts printing from width 0 (a pending
// width must not pad the first word) and restores everything afterwards.
class format_guard {
public:
    explicit format_guard(basic_ostream<char>& os)
        : os_(os), fill_(os.fill()), width_(os.width()), precision_(os.precision()), flags_(os.flags())
    {
        os.width(0);
    }
    ~format_guard()
    {
        os_.fill(fill_);
        os_.width(width_);
        os_.precision(precision_);
        os_.flags(flags_);
    }
    format_guard(const format_guard&) = delete;
    format_guard& operator=(const format_guard&) = delete;

private:
    basic_ostream<char>& os_;
    char fill_;
    streamsize width_;
    streamsize precision_;
    ios_base::fmtflags flags_;
};

// Error numbers are shown as unsigned 32-bit values in octal and
// hexadecimal mode.
void write_error_no(basic_ostream<char>& os, int error_no)
{
    if (os.flags() & (ios_base::oct | ios_base::hex))
        os << static_cast<unsigned>(error_no);
    else
        os << error_no;
}

// The expanded message, the status note and the line end.
void write_message(basic_ostream<char>& os, const exception_node& n)
{
    msg_write_stream out(os);
    n.expand(out);
    if (n.lost_information())
        os << "; \"" << lost_information_texts[n.status & 3] << "\" (code:" << n.status << ')';
    else if (out.ends_with_line_feed())
        return;
    os << '\n';
}

// "exception  1: no.1000003  (file:line)" and the message on the next line.
void write_long_node(basic_ostream<char>& os, int k, const exception_node& n)
{
    os << "exception";
    if (!os.fill())
        os.fill(' ');
    os.setf(ios_base::right, ios_base::adjustfield);
    os.width(3);
    os << k << ": no.";
    write_error_no(os, n.error_no);
    if (n.file)
        os << "  (" << faultprot_cstring(n.file) << ':' << n.line << ')';
    os << "\n    ";
    write_message(os, n);
}

// "exception 1000003: " and the message.
void write_short_node(basic_ostream<char>& os, int, const exception_node& n)
{
    os << "exception ";
    write_error_no(os, n.error_no);
    os << ": ";
    write_message(os, n);
}

// Why a payload has no frames, by the first node's status; null for a
// status without a fixed reason.
const char* missing_stack_reason(int status)
{
    switch (status) {
    case exception_node::stack_suppressed:
        return "Stack generation suppressed.";
    case exception_node::stack_lost:
        return "Allocation of stack data failed.";
    case exception_node::stack_empty:
        return "Stack generation system error.";
    default:
        return nullptr;
    }
}

} // namespace

void impl::write_throw_location(basic_ostream<char>& os, const exception_data* d)
{
    static const char none[] = "NO exception throw location recorded. ";
    if (!d) {
        os << none << "Allocation of exp.data failed." << '\n';
    } else if (d->has_local_stack() && d->frame_count > 0) {
        os << "exception throw location:" << '\n';
        uvt_extern::import::print_stack_trace(&os, static_cast<void**>(d->stack),
                                              static_cast<unsigned>(d->frame_count));
        os << '\n';
    } else if (!d->has_local_stack() && d->stack) {
        os.write(static_cast<const char*>(d->stack), d->frame_count);
        os << '\n';
    } else if (const char* reason = missing_stack_reason(d->first.status)) {
        os << none << reason << '\n';
    } else {
        os << none << "Bad alloc.code: " << d->first.status << '\n';
    }
}

namespace {

// --- the fixed text of an exception without payload ---

char bad_allocation_buffer[] = "exception: no.             (                                                "
                               "                :      ). No further info because of bad allocation in "
                               "exception object.";
static_assert(sizeof bad_allocation_buffer == 165);

constexpr int error_no_column = 15, error_no_width = 11;
constexpr int file_column = 28, file_width = 64;
constexpr int line_column = 93, line_width = 6;

// `value` right-aligned in `width` columns, leading zeros blank; digits
// that do not fit are cut off at the left.
void put_number(char* field, int width, long value)
{
    unsigned long magnitude = value < 0 ? 0ul - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
    int i = width;
    do {
        field[--i] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude && i > 0);
    if (value < 0 && i > 0)
        field[--i] = '-';
    while (i > 0)
        field[--i] = ' ';
}

// The part of `file` that fits, right-aligned; an empty file leaves the
// field as it was.
void put_file_tail(char* field, std::size_t width, const char* file)
{
    const std::size_t length = faultprot_cstring(file).len();
    if (!length)
        return;
    const std::size_t shown = length < width ? length : width;
    char tail[file_width + 1];
    faultprot_cstring(file + length - shown).ncpy(tail, shown + 1);
    std::memset(field, ' ', width - shown);
    std::memcpy(field + width - shown, tail, shown);
}

} // namespace

const char* exception::bad_allocation_text_() const noexcept
{
    put_number(bad_allocation_buffer + error_no_column, error_no_width, error_no_);
    put_file_tail(bad_allocation_buffer + file_column, file_width, file_);
    put_number(bad_allocation_buffer + line_column, line_width, line_);
    return bad_allocation_buffer;
}

const char* exception::what() const noexcept
{
    const exception_node* n = first_node_();
    return n ? n->text() : bad_allocation_text_();
}

basic_string<char> exception::what(allocator& a, bool no_stack) const
{
    ostrstream os(a);
    print_short(os, no_stack, false);
    if (os.bad())
        tThrow(bad_alloc(__FILE__, __LINE__, false));
    return basic_string<char>(os.c_str(), os.size(), a);
}

void exception::print_(basic_ostream<char>& os, layout_ form, bool no_stack, bool first_stack_only) const
{
    format_guard guard(os);
    exception_data* d = payload_();
    if (!d) {
        os << bad_allocation_text_() << '\n';
        return;
    }
    auto write_node = form == layout_::long_form ? write_long_node : write_short_node;
    int k = 1;
    for (; d; d = d->successor(), ++k) {
        for (const exception_node* n = &d->first; n; n = n->next)
            write_node(os, k, *n);
        if (!no_stack && !(first_stack_only && k > 1))
            impl::write_throw_location(os, d);
    }
    mark_processed();
}

void exception::print(basic_ostream<char>& os) const
{
    if (printer_) {
        printer_(*this, os);
        mark_processed();
        return;
    }
    print_(os, layout_::long_form, false, false);
}

void exception::print_default(basic_ostream<char>& os, bool no_stack, bool first_stack_only) const
{
    print_(os, layout_::long_form, no_stack, first_stack_only);
}

void exception::print_short(basic_ostream<char>& os, bool no_stack, bool first_stack_only) const
{
    print_(os, layout_::short_form, no_stack, first_stack_only);
}

void exception::print_stack(basic_ostream<char>& os) const { impl::write_throw_location(os, payload_()); }

basic_ostream<char>& operator<<(basic_ostream<char>& os, const exception& e)
{
    e.print(os);
    return os;
}

} // namespace uvt
