// Catches an exception thrown inside the shared object by its own class.
#include <uvt/all>

#include <cstdio>

int main()
{
    try {
        uvt::throwOutOfRange(__FILE__, __LINE__, 7, 0, 5);
    } catch (const uvt::out_of_range& e) {
        e.mark_processed();
        std::printf("caught %d\n", e.error_no());
        return e.error_no() == 1000003 ? 0 : 1;
    }
    return 1;
}
