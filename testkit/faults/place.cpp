/* SPDX-License-Identifier: MIT */
#include "place.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace vosfaults {

namespace {

bool fits(const char *text, const char *where) {
    const std::size_t length = strlen(where);
    if (strcmp(text, where) == 0) return true;
    if (*where == '/')
        return strncmp(text, where, length) == 0 &&
               (text[length] == '/' || (length > 1 && where[length - 1] == '/') || length == 1);
    const char *const slash = strrchr(text, '/');
    return slash != nullptr && strcmp(slash + 1, where) == 0;
}

bool addressFits(const void *address, std::size_t size, const char *where) {
    sockaddr_un local{};
    if (address == nullptr || size <= offsetof(sockaddr_un, sun_path)) return false;
    memcpy(&local, address, size < sizeof local ? size : sizeof local);
    char path[sizeof local.sun_path + 1]{};
    memcpy(path, local.sun_path, sizeof local.sun_path);
    return local.sun_family == AF_UNIX && path[0] != '\0' && fits(path, where);
}

/* The path behind a link of /proc/self; empty when it has none. */
void behind(const char *link, char *path) {
    const ssize_t length = readlink(link, path, PATH_MAX - 1);
    path[length > 0 ? length : 0] = '\0';
}

bool descriptorFits(int fd, const char *where) {
    char link[48];
    char path[PATH_MAX];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    behind(link, path);
    if (strncmp(path, "socket:", strlen("socket:")) != 0) return fits(path, where);
    sockaddr_un peer{};
    socklen_t size = sizeof peer;
    return getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &size) == 0 && addressFits(&peer, size, where);
}

/* A path that is not absolute begins at a directory that the call names, or at the process's. */
bool pathFits(const char *text, int directory, const char *where) {
    if (text == nullptr) return false;
    if (fits(text, where)) return true;
    if (*text == '/' || *where != '/') return false;
    char link[48] = "/proc/self/cwd";
    char path[2 * PATH_MAX];
    if (directory >= 0) snprintf(link, sizeof link, "/proc/self/fd/%d", directory);
    behind(link, path);
    const std::size_t length = strlen(path);
    snprintf(path + length, sizeof path - length, "/%s", text);
    return fits(path, where);
}

/* The value of the parameter, or `none` when the call has no such one. */
long argumentOf(const Call &call, const Frame &frame, const char *parameter, const char *type, long none) {
    const int position = positionOf(call, parameter, type);
    return position >= 0 && position < Frame::kArguments ? frame.argument[position] : none;
}

}  // namespace

bool isAbout(const Call &call, const Frame &frame, const char *where) {
    static constexpr const char *kTexts[] = {"path",    "name",         "host",  "pDestName", "pPath", "pFileName",
                                             "pSource", "pDestination", "pHost", "pProcName", "pName", "pObjName"};
    long directory = argumentOf(call, frame, "at", "int ", -1);
    if (directory == -1 && positionOf(call, "path") == 1) directory = argumentOf(call, frame, "from", "int ", -1);
    for (const char *const each : kTexts) {
        const auto *const text = reinterpret_cast<const char *>(argumentOf(call, frame, each, "const char *", 0));
        if (pathFits(text, static_cast<int>(directory), where)) return true;
    }
    for (const char *const each : {"fd", "iFd", "iSocketFd"}) {
        const long fd = argumentOf(call, frame, each, "int", -1);
        if (fd >= 0 && descriptorFits(static_cast<int>(fd), where)) return true;
    }
    for (const char *const type : {"const sockaddr *", "const struct sockaddr *"})
        for (const char *const each : {"address", "pAddr"}) {
            const auto *const address = reinterpret_cast<const void *>(argumentOf(call, frame, each, type, 0));
            const int position = positionOf(call, each, type);
            if (address == nullptr || position + 1 >= Frame::kArguments) continue;
            if (addressFits(address, static_cast<uint32_t>(frame.argument[position + 1]), where)) return true;
        }
    for (const char *const type : {"const msghdr *", "const struct msghdr *"})
        for (const char *const each : {"message", "pMsg"}) {
            const auto *const message = reinterpret_cast<const msghdr *>(argumentOf(call, frame, each, type, 0));
            if (message != nullptr && addressFits(message->msg_name, message->msg_namelen, where)) return true;
        }
    return false;
}

}  // namespace vosfaults
