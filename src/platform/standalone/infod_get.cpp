// infod-get: prints what the stand-alone information service holds.

#include "platform/paths.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include <getopt.h>
#include <jansson.h>
#include <sqlite3.h>

constexpr const char *store_path = "/var/run/infod.db";

constexpr const char *usage = "usage: infod-get [--json] [KEY-PREFIX]\n"
                              "Prints the keys that begin with KEY-PREFIX (all without one) and"
                              " their values,\n"
                              "one a line, or as one JSON object.\n"
                              "Exit status: 0 something was printed, 1 no such key, 2 trouble.\n";

using database = std::unique_ptr<sqlite3, int (*)(sqlite3 *)>;
using statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt *)>;

static void print_line(sqlite3_stmt *row)
{
    printf("%s %s\n", reinterpret_cast<const char *>(sqlite3_column_text(row, 0)),
           reinterpret_cast<const char *>(sqlite3_column_text(row, 2)));
}

static void add_member(json_t *object, sqlite3_stmt *row)
{
    const char *key = reinterpret_cast<const char *>(sqlite3_column_text(row, 0));
    json_t *value = sqlite3_column_type(row, 2) == SQLITE_INTEGER
                        ? json_integer(sqlite3_column_int64(row, 2))
                        : json_string(reinterpret_cast<const char *>(sqlite3_column_text(row, 2)));
    json_object_set_new(object, key, value);
}

static int print_values(const char *prefix, bool as_json)
{
    sqlite3 *opened = nullptr;
    const int code =
        sqlite3_open_v2(rooted(store_path).c_str(), &opened, SQLITE_OPEN_READONLY, nullptr);
    const database db(opened, sqlite3_close);
    sqlite3_busy_timeout(db.get(), 2000);
    sqlite3_stmt *prepared = nullptr;
    if (code != SQLITE_OK ||
        sqlite3_prepare_v2(db.get(),
                           "SELECT key, kind, coalesce(value, '') FROM info"
                           " WHERE substr(key, 1, length(?1)) = ?1 ORDER BY key",
                           -1, &prepared, nullptr) != SQLITE_OK) {
        fprintf(stderr, "infod-get: %s: %s\n", store_path, sqlite3_errmsg(db.get()));
        return 2;
    }
    const statement rows(prepared, sqlite3_finalize);
    sqlite3_bind_text(rows.get(), 1, prefix, -1, SQLITE_STATIC);

    const std::unique_ptr<json_t, void (*)(json_t *)> object(json_object(), json_decref);
    int found = 0;
    int step = SQLITE_DONE;
    for (; (step = sqlite3_step(rows.get())) == SQLITE_ROW; found++) {
        if (as_json)
            add_member(object.get(), rows.get());
        else
            print_line(rows.get());
    }
    if (step != SQLITE_DONE) {
        fprintf(stderr, "infod-get: %s: %s\n", store_path, sqlite3_errmsg(db.get()));
        return 2;
    }
    if (as_json) {
        json_dumpf(object.get(), stdout, JSON_INDENT(2));
        putchar('\n');
    }
    return found > 0 ? 0 : 1;
}

int main(int argc, char **argv)
{
    constexpr option options[] = {{"json", no_argument, nullptr, 'j'},
                                  {"help", no_argument, nullptr, 'h'},
                                  {"version", no_argument, nullptr, 'V'},
                                  {}};
    bool as_json = false;
    for (int c; (c = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
        switch (c) {
        case 'j':
            as_json = true;
            break;
        case 'h':
            fputs(usage, stdout);
            return 0;
        case 'V':
            puts("infod-get " TESSERA_VERSION);
            return 0;
        default:
            fputs(usage, stderr);
            return 2;
        }
    }
    if (argc - optind > 1 || paths_check() != 0) {
        fputs(argc - optind > 1 ? usage : "infod-get: TESSERA_ROOT must be an absolute path\n",
              stderr);
        return 2;
    }
    return print_values(optind < argc ? argv[optind] : "", as_json);
}
