// Concatenation chains (impl::StringAdd) and the allocator of results that
// have no allocator of their own.
#include <uvt/string>

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
void StringAdd<C, T, N>::Argument::append_to(string_type& target) const
{
    switch (kind_) {
    case kind::string:
        target.append(string_->data(), string_->size());
        break;
    case kind::text:
        target.append(text_, size_);
        break;
    case kind::character:
        target.push_back(char_);
        break;
    case kind::chain:
        chain_->append_to_(target);
        break;
    }
}

template <class C, class T, class N>
bool StringAdd<C, T, N>::Argument::refers_to(const string_base<C, T, N>& s) const noexcept
{
    return (kind_ == kind::string && string_ == &s) || (kind_ == kind::chain && chain_->refers_to(s));
}

template <class C, class T, class N>
void StringAdd<C, T, N>::concatenate(string_type& target) const
{
    target.reserve(target.size() + size());
    append_to_(target);
}

template <class C, class T, class N>
void StringAdd<C, T, N>::append_to_(string_type& target) const
{
    left_.append_to(target);
    right_.append_to(target);
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
