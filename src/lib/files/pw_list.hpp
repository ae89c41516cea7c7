// The password file as a list of lines with an empty head.
#ifndef VIMBRA_LIB_FILES_PW_LIST_HPP
#define VIMBRA_LIB_FILES_PW_LIST_HPP

#include "lib/files/line_file.hpp"

using tagListNode = vimbra::LineNode;

// The head, or null.
tagListNode* CreatList();

// Puts a line behind the last one; last may be any node, which saves the way from the head. The new
// node, or null.
tagListNode* InsertUserInfoToList(tagListNode* last, std::initializer_list<std::string_view> parts);

// Replaces the file's content by the lines after the head. 0 or -1.
s32 WriteListToFile(const tagListNode* list, vimbra::LineFile& file);

// Frees the list with its head; null is taken.
void ReleaseList(tagListNode* list);

#endif
