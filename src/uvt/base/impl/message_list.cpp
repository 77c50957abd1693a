// Message nodes and parameters: their block sizes, construction, lookup and
// release, and the standalone message_list.

#include <uvt/impl/memory>
#include <uvt/impl/message_list>
#include <uvt/stdexcept>

#include <cstring>

namespace uvt {

// --- msg_parameter ---

std::size_t msg_parameter::block_size(std::size_t value_length) noexcept
{
    const std::size_t value_space = value_length + 1 > 8 ? value_length + 1 : 8;
    return sizeof(msg_parameter) + value_space;
}

msg_parameter* msg_parameter::construct(void* block, const char* name, const char* value, std::size_t value_length,
                                        bool replace) noexcept
{
    auto* p = static_cast<msg_parameter*>(block);
    p->next = nullptr;
    p->name = name;
    p->name_length = static_cast<std::uint32_t>(std::strlen(name));
    p->value_length = static_cast<std::uint32_t>(value_length);
    p->replace = replace;
    char* inline_value = reinterpret_cast<char*>(p + 1);
    if (value_length)
        std::memcpy(inline_value, value, value_length);
    inline_value[value_length] = '\0';
    return p;
}

// --- message_node ---

void message_node::init(const char* source, std::size_t n) noexcept
{
    head = tail = nullptr;
    length = n;
    if (source)
        std::memcpy(text(), source, n);
    else
        std::memset(text(), ' ', n);
    text()[n] = '\0';
}

void message_node::add(msg_parameter* p) noexcept
{
    p->next = nullptr;
    if (tail)
        tail->next = p;
    else
        head = p;
    tail = p;
}

const msg_parameter* message_node::find(const char* name, std::size_t name_length) const noexcept
{
    for (const msg_parameter* p = head; p; p = p->next) {
        if (p->name_length == name_length && std::memcmp(p->name, name, name_length) == 0)
            return p;
    }
    return nullptr;
}

void message_node::release_parameters(allocator& a) noexcept
{
    for (msg_parameter* p = head; p;) {
        msg_parameter* next = p->next;
        a.deallocate(p);
        p = next;
    }
    head = tail = nullptr;
}

// --- exception_node ---

std::size_t exception_node::block_size(const char* text) noexcept
{
    return sizeof(exception_node) + message_node::text_space(text ? std::strlen(text) : 0);
}

exception_node* exception_node::construct(void* block, const char* file, int line, int error_no,
                                          const char* text) noexcept
{
    auto* n = static_cast<exception_node*>(block);
    n->next = nullptr;
    n->file = file;
    n->line = line;
    n->error_no = error_no;
    n->status = complete;
    n->owns_file = false;
    n->has_message = true;
    n->message.init(text, text ? std::strlen(text) : 0);
    return n;
}

void exception_node::release_contents(allocator& a) noexcept
{
    if (has_message)
        message.release_parameters(a);
    if (owns_file)
        a.deallocate(const_cast<char*>(file));
    owns_file = false;
}

// --- message_list ---

message_list::~message_list()
{
    for (exception_node* n = first_; n;) {
        exception_node* next = n->next;
        n->release_contents(alloc_);
        alloc_.deallocate(n);
        n = next;
    }
}

void message_list::new_message(const char* text)
{
    exception_node* n =
        exception_node::construct(alloc_.allocate(exception_node::block_size(text)), nullptr, 0, 0, text);
    if (last_)
        last_->next = n;
    else
        first_ = n;
    last_ = n;
}

void message_list::new_param(const char* name, const char* value, bool replace)
{
    if (!last_)
        tThrow(null_pointer(__FILE__, __LINE__, "Message is does not exist. Cannot create parameter"));
    const std::size_t length = value ? std::strlen(value) : 0;
    void* block = alloc_.allocate(msg_parameter::block_size(length));
    last_->message.add(msg_parameter::construct(block, name ? name : "", value, length, replace));
}

} // namespace uvt
