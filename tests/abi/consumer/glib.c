/* A list of the library's in a program that uses GLib too. C and C++ alike. */
#ifdef GLIB_FIRST
#include <glib.h>
#include <vimbra/list.h>
#else
#include <glib.h>
#include <vimbra/list.h>
#endif

int main(void) {
    static int values[3];
    GList* list = NULL;
    for (int i = 0; i < 3; i++) {
        list = vimbra_g_list_append(list, &values[i]);
    }
    const gpointer last = &values[2];
    GList* const end = g_list_last(list);
    if (g_list_length(list) != 3 || end->data != last || end != list->next->next) {
        return 1;
    }
    list = vimbra_g_list_remove(g_list_reverse(list), last);
    if (vimbra_g_list_first(list->next) != list || g_list_index(list, &values[0]) != 1) {
        return 2;
    }
    GList* own = g_list_append(NULL, &values[0]);
    const int both = vimbra_g_list_first(own) == own;
    g_list_free(own);
    return both ? 0 : 3;
}
