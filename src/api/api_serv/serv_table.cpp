#include "api/api_serv/serv_table.hpp"

#include <cstddef>
#include <cstring>

namespace {

constexpr size_t kRowsToFind = VIMBRA_SERVICE_ROWS - 1;

}  // namespace

TServType g_atNetServiceInfo[VIMBRA_SERVICE_ROWS] = {
    {"telnetd",
     23,
     {"telnet", "stream", "tcp", "nowait", "root", "/sbin/telnetd", "/sbin/telnetd -i"},
     " "},
    {"telnetd",
     23,
     {"telnet", "stream", "tcp6", "nowait", "root", "/sbin/telnetd", "/sbin/telnetd -i"},
     " "},
    {"ssh",
     22,
     {"ssh", "stream", "tcp", "nowait", "root", "/sbin/dropbear", "/sbin/dropbear -i"},
     " "},
    {"ssh",
     22,
     {"ssh", "stream", "tcp6", "nowait", "root", "/sbin/dropbear", "/sbin/dropbear -i"},
     " "},
    {"ftpd", 21, {"ftp", "stream", "tcp", "nowait", "root", "/sbin/ftpd", "/sbin/ftpd -w"}, "/"},
    {"ftpd", 21, {"ftp", "stream", "tcp6", "nowait", "root", "/sbin/ftpd", "/sbin/ftpd -w"}, "/"},
    {"tftpd",
     69,
     {"tftp", "dgram", "udp", "nowait", "root", "/sbin/tftpd", "/sbin/tftpd -l -c"},
     "/"},
    {"tftpd",
     69,
     {"tftp", "dgram", "udp6", "nowait", "root", "/sbin/tftpd", "/sbin/tftpd -l -c"},
     "/"},
    {"httpd",
     80,
     {"www", "stream", "tcp", "nowait", "root", "/sbin/httpd", "/sbin/httpd -i -c "},
     "/etc/httpd.conf"},
    {"httpd",
     80,
     {"www", "stream", "tcp6", "nowait", "root", "/sbin/httpd", "/sbin/httpd -i -c "},
     "/etc/httpd.conf"},
    // Kept: of the factory's test bench, calls do not find it; the test is
    // Service.WhatTheTableDoesNotHave.
    {"tcp_server1",
     8000,
     {"tcptest", "stream", "tcp", "nowait", "admin", "/usr/tcp_server1", "/usr/tcp_server1"},
     " "},
};

TServType* FindService(const char* service, const char* proto) {
    for (size_t i = 0; i < kRowsToFind; i++) {
        TServType& row = g_atNetServiceInfo[i];
        if (strcmp(row.pchServType, service) == 0 &&
            (proto == nullptr || strcmp(row.tInetdInfo.pchProto, proto) == 0)) {
            return &row;
        }
    }
    return nullptr;
}
