// The configuration of inetd as a list of lines: with an empty head where a service is switched on,
// without one where it is switched off.
#ifndef VIMBRA_API_SERV_INETD_LIST_HPP
#define VIMBRA_API_SERV_INETD_LIST_HPP

#include <vimbra/service.h>

#include "lib/files/line_file.hpp"

// The flag is 1 for a marker comment of this library's, else 0.
using ServNode = vimbra::LineNode;
using TNetServParam = ServNode;

// The parts of one line.
using LineParts = std::initializer_list<std::string_view>;

// The file's lines without its comments; null when it cannot be read or memory is out.
ServNode* CreateInetdList();

// Positions count from the head, which is 0. Both give 0, or -1 where there is no such position.
s32 AddOneNode(ServNode* list, u32 position, u32 flag, LineParts parts);
s32 DelOneNode(ServNode* list, u32 position);

// Frees the list with its head; null is taken.
void FreeList(ServNode* list);

// Writes the lines after the head. 0 or -1.
s32 WriteList(const ServNode* list);

// Adds a service's line behind its marker, or marker and line at the end. 0 or -1.
s32 AddInetdfileLine(ServNode* list, const TServType& row, LineParts line);

using NetService = vimbra::LineNode;

// All lines of the file; null for an empty or unreadable one.
NetService* ReadFromInetdFile();

// Takes the line of a service out. 0, also when there is none, or -1 for an unknown service.
s32 StopServToList(NetService*& list, const char* service);

// Writes all lines, of which there may be none. 0 or -1.
s32 WriteToInetdFile(const NetService* list);

#endif
