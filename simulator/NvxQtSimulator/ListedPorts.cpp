#include "NvxQtSimulator/ListedPorts.h"

#include <utility>

#ifdef __linux__

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

struct udev;
struct udev_device;
struct udev_enumerate;
struct udev_list_entry;

namespace {

constexpr char kDevFolder[] = "/dev/";
constexpr char kLockPrefix[] = "LCK..";

/// One port of a listing. Libudev's users hold opaque pointers: here to the marks of the entry that they
/// mean.
struct ListedEntry
{
    ListedPorts::Port port;
    std::string sysPath;
    std::string vendorText;
    std::string productText;
    char listMark = 0;
    char deviceMark = 0;
    char parentMark = 0;
};
using Listing = std::vector<ListedEntry>;

std::mutex g_mutex;
std::shared_ptr<const Listing> g_ports;
// What this thread lists, from the choice of the subsystem to the enumeration's end.
thread_local std::shared_ptr<const Listing> t_listing;
thread_local const udev_enumerate* t_enumeration = nullptr;

std::shared_ptr<const Listing> currentPorts()
{
    const std::lock_guard lock(g_mutex);
    return g_ports;
}

std::string usbNumber(uint16_t number)
{
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%04x", unsigned{number});
    return number == 0 ? std::string() : std::string(text.data());
}

/// The entry that an opaque pointer lies in; none for those of libudev itself.
const ListedEntry* entryOf(const void* pointer)
{
    if (!t_listing || t_listing->empty())
        return nullptr;
    const auto* first = reinterpret_cast<const char*>(t_listing->data());
    const auto* end = reinterpret_cast<const char*>(t_listing->data() + t_listing->size());
    const auto* at = static_cast<const char*>(pointer);
    if (std::less<>()(at, first) || !std::less<>()(at, end))
        return nullptr;
    return t_listing->data() + static_cast<size_t>(at - first) / sizeof(ListedEntry);
}

template <class Opaque> Opaque* opaque(const char& mark)
{
    return reinterpret_cast<Opaque*>(const_cast<char*>(&mark));
}

const char* textOrNull(const std::string& text)
{
    return text.empty() ? nullptr : text.c_str();
}

/// The function that this program's own one stands in front of.
template <class Function> Function* nextFunction(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// The path that the port of this name is listed with; null where there is none.
std::shared_ptr<const std::string> pathOfPort(std::string_view name)
{
    const auto ports = currentPorts();
    if (!ports)
        return nullptr;
    const auto found = std::find_if(ports->begin(), ports->end(),
                                    [&](const auto& entry) { return entry.port.name == name; });
    return found == ports->end() ? nullptr : std::shared_ptr<const std::string>(ports, &found->port.path);
}

/// Lock files that were made in the place of others: the name asked for, and the name taken.
std::map<std::string, std::string>& lockFiles()
{
    static std::map<std::string, std::string> files;
    return files;
}

/// Who opens a port makes a file first that keeps others from it. Its name says the line that is opened,
/// since the port's own may stand for another one in the next process.
std::string lockFileOf(std::string_view folder, std::string_view name, const std::string& path)
{
    const auto line = pathOfPort(name);
    const std::lock_guard lock(g_mutex);
    if (const auto known = lockFiles().find(path); known != lockFiles().end())
        return known->second;
    if (!line)
        return path;
    std::string lineName = *line;
    std::replace(lineName.begin(), lineName.end(), '/', '_');
    return lockFiles()[path] = std::string(folder) + kLockPrefix + lineName;
}

/// Where a path leads: the port's own one for "/dev/" and the name of a port, or for the name of its lock
/// file.
std::string placeOf(const char* path)
{
    const std::string_view all = path;
    if (all.starts_with(kDevFolder)) {
        const auto line = pathOfPort(all.substr(std::strlen(kDevFolder)));
        return line ? *line : path;
    }
    const size_t fileAt = all.rfind('/') + 1;
    if (all.substr(fileAt).starts_with(kLockPrefix))
        return lockFileOf(all.substr(0, fileAt), all.substr(fileAt + std::strlen(kLockPrefix)), path);
    return path;
}

/// The same for a file that goes.
std::string forgottenPlaceOf(const char* path)
{
    const std::lock_guard lock(g_mutex);
    // Lock files alone are looked for: this may be called before the program's own objects are made.
    if (std::strstr(path, kLockPrefix) == nullptr)
        return path;
    const auto node = lockFiles().extract(path);
    return node.empty() ? path : node.mapped();
}

} // namespace

#define NVX_IN_FRONT extern "C" __attribute__((visibility("default")))

NVX_IN_FRONT int open64(const char* path, int flags, ...)
{
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) {
        va_list rest;
        va_start(rest, flags);
        mode = va_arg(rest, mode_t);
        va_end(rest);
    }
    static const auto next = nextFunction<int(const char*, int, ...)>("open64");
    return next(placeOf(path).c_str(), flags, mode);
}

NVX_IN_FRONT int unlink(const char* path) noexcept
{
    static const auto next = nextFunction<int(const char*)>("unlink");
    return next(forgottenPlaceOf(path).c_str());
}

NVX_IN_FRONT int udev_enumerate_add_match_subsystem(udev_enumerate* enumeration, const char* subsystem)
{
    if (std::strcmp(subsystem, "tty") == 0) {
        t_listing = currentPorts();
        t_enumeration = t_listing ? enumeration : nullptr;
    }
    static const auto next =
        nextFunction<int(udev_enumerate*, const char*)>("udev_enumerate_add_match_subsystem");
    return next(enumeration, subsystem);
}

NVX_IN_FRONT int udev_enumerate_scan_devices(udev_enumerate* enumeration)
{
    if (enumeration == t_enumeration)
        return 0;
    static const auto next = nextFunction<int(udev_enumerate*)>("udev_enumerate_scan_devices");
    return next(enumeration);
}

NVX_IN_FRONT udev_list_entry* udev_enumerate_get_list_entry(udev_enumerate* enumeration)
{
    if (enumeration == t_enumeration)
        return t_listing->empty() ? nullptr : opaque<udev_list_entry>(t_listing->front().listMark);
    static const auto next = nextFunction<udev_list_entry*(udev_enumerate*)>("udev_enumerate_get_list_entry");
    return next(enumeration);
}

NVX_IN_FRONT udev_enumerate* udev_enumerate_unref(udev_enumerate* enumeration)
{
    if (enumeration != nullptr && enumeration == t_enumeration) {
        t_enumeration = nullptr;
        t_listing.reset();
    }
    static const auto next = nextFunction<udev_enumerate*(udev_enumerate*)>("udev_enumerate_unref");
    return next(enumeration);
}

NVX_IN_FRONT udev_list_entry* udev_list_entry_get_next(udev_list_entry* position)
{
    if (const auto* entry = entryOf(position)) {
        ++entry;
        return entry == t_listing->data() + t_listing->size() ? nullptr
                                                              : opaque<udev_list_entry>(entry->listMark);
    }
    static const auto next = nextFunction<udev_list_entry*(udev_list_entry*)>("udev_list_entry_get_next");
    return next(position);
}

NVX_IN_FRONT const char* udev_list_entry_get_name(udev_list_entry* position)
{
    if (const auto* entry = entryOf(position))
        return entry->sysPath.c_str();
    static const auto next = nextFunction<const char*(udev_list_entry*)>("udev_list_entry_get_name");
    return next(position);
}

NVX_IN_FRONT udev_device* udev_device_new_from_syspath(udev* context, const char* path)
{
    if (t_listing) {
        for (const auto& entry : *t_listing) {
            if (entry.sysPath == path)
                return opaque<udev_device>(entry.deviceMark);
        }
    }
    static const auto next = nextFunction<udev_device*(udev*, const char*)>("udev_device_new_from_syspath");
    return next(context, path);
}

NVX_IN_FRONT udev_device* udev_device_get_parent(udev_device* device)
{
    if (const auto* entry = entryOf(device)) {
        // Without a parent a device counts as none that hardware stands behind.
        auto* parent = opaque<udev_device>(entry->parentMark);
        return device == parent ? nullptr : parent;
    }
    static const auto next = nextFunction<udev_device*(udev_device*)>("udev_device_get_parent");
    return next(device);
}

NVX_IN_FRONT udev_device* udev_device_unref(udev_device* device)
{
    if (entryOf(device) != nullptr)
        return nullptr;
    static const auto next = nextFunction<udev_device*(udev_device*)>("udev_device_unref");
    return next(device);
}

NVX_IN_FRONT const char* udev_device_get_sysname(udev_device* device)
{
    if (const auto* entry = entryOf(device))
        return entry->port.name.c_str();
    static const auto next = nextFunction<const char*(udev_device*)>("udev_device_get_sysname");
    return next(device);
}

NVX_IN_FRONT const char* udev_device_get_devnode(udev_device* device)
{
    if (const auto* entry = entryOf(device))
        return entry->port.path.c_str();
    static const auto next = nextFunction<const char*(udev_device*)>("udev_device_get_devnode");
    return next(device);
}

NVX_IN_FRONT const char* udev_device_get_driver(udev_device* device)
{
    if (entryOf(device) != nullptr)
        return "pseudo terminal";
    static const auto next = nextFunction<const char*(udev_device*)>("udev_device_get_driver");
    return next(device);
}

NVX_IN_FRONT const char* udev_device_get_property_value(udev_device* device, const char* key)
{
    if (const auto* entry = entryOf(device)) {
        const auto is = [key](const char* name) { return std::strcmp(key, name) == 0; };
        if (is("ID_VENDOR_ID"))
            return textOrNull(entry->vendorText);
        if (is("ID_MODEL_ID"))
            return textOrNull(entry->productText);
        if (is("ID_VENDOR"))
            return textOrNull(entry->port.manufacturer);
        return is("ID_MODEL") ? textOrNull(entry->port.description) : nullptr;
    }
    static const auto next =
        nextFunction<const char*(udev_device*, const char*)>("udev_device_get_property_value");
    return next(device, key);
}

#undef NVX_IN_FRONT

static void publish(const std::vector<ListedPorts::Port>* ports)
{
    std::shared_ptr<Listing> listing;
    if (ports != nullptr) {
        listing = std::make_shared<Listing>();
        for (const auto& port : *ports) {
            listing->push_back(
                {port, "/sys/class/tty/" + port.name, usbNumber(port.vendorId), usbNumber(port.productId)});
        }
    }
    const std::lock_guard lock(g_mutex);
    g_ports = std::move(listing);
}

#else

static void publish(const std::vector<ListedPorts::Port>*) {}

#endif

ListedPorts::ListedPorts()
{
    publish(&m_ports);
}

ListedPorts::~ListedPorts()
{
    publish(nullptr);
}

void ListedPorts::setPorts(std::vector<Port> ports)
{
    m_ports = std::move(ports);
    publish(&m_ports);
}

void ListedPorts::addPort(const Port& port)
{
    m_ports.push_back(port);
    publish(&m_ports);
}
