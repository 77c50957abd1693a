// Concatenation chains (impl::StringAdd) and the allocator of results that
// have no allocator of their own.
#include <uvt/string>

#include <cstdint>

namespace uvt::impl {

template <class C, class T, class N>
auto StringAdd<C, T, N>::Argument::size() const noexcept -> size_type
{
    switch (kind_) {
    case kind::string:
        return string_->size();
    case kind::chain:
        return chain_->size();
    default:
        return size_;
    }
}

template <class C, class T, class N>
void StringAdd<C, T, N>::Argument::write_to(C*& out) const noexcept
{
    switch (kind_) {
    case kind::string:
        T::copy(out, string_->data(), string_->size());
        out += string_->size();
        break;
    case kind::text:
        T::copy(out, text_, size_);
        out += size_;
        break;
    case kind::character:
        *out++ = char_;
        break;
    case kind::chain:
        chain_->write_to_(out);
        break;
    }
}

template <class C, class T, class N>
bool StringAdd<C, T, N>::Argument::refers_to(const string_base<C, T, N>& s) const noexcept
{
    switch (kind_) {
    case kind::string:
        return string_ == &s;
    case kind::text: {
        const auto text = reinterpret_cast<std::uintptr_t>(text_);
        const auto first = reinterpret_cast<std::uintptr_t>(s.data());
        return text >= first && text <= first + s.size() * sizeof(C);
    }
    case kind::chain:
        return chain_->refers_to(s);
    default:
        return false;
    }
}

template <class C, class T, class N>
void StringAdd<C, T, N>::concatenate(string_type& target) const
{
    C* out = target.extend_(size());
    write_to_(out);
}

template <class C, class T, class N>
void StringAdd<C, T, N>::write_to_(C*& out) const noexcept
{
    left_.write_to(out);
    right_.write_to(out);
}

allocator& StringAddAllocator::get_allocator()
{
    static const allocator_handle sub =
        allocator::global_allocator().createSubAllocator("uvt::string concatenation", vela_component{0});
    return *sub;
}

template class StringAdd<char, char_traits<char>, integer_constant<64>>;
template class StringAdd<wchar_t, char_traits<wchar_t>, integer_constant<64>>;

} // namespace uvt::impl
