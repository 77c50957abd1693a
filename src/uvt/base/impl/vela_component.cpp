// Display names of the host program's components.

#include <uvt/vela_component>

namespace uvt {

namespace {
constexpr const char* component_names[] = {
    "Unspecified",  "Base",          "Memory",        "Threads",         "Synchronization",
    "Input/Output", "Network",       "Communication", "Persistence",     "Logging",
    "Tracing",      "Configuration", "Security",      "Authentication",  "Authorization",
    "Session",      "Transaction",   "Query Parser",  "Query Optimizer", "Query Executor",
    "Storage",      "Index",         "Cache",         "Replication",     "Backup",
    "Recovery",     "Monitoring",    "Statistics",    "Scheduler",       "Compression",
    "Text",         "Application",   "Test",
};
static_assert(sizeof component_names / sizeof *component_names == 33, "components 0 to 32 have names");
} // namespace

const char* getVELAComponentName(const vela_component& c)
{
    return c.number < 33 ? component_names[c.number] : "Unknown component";
}

} // namespace uvt
