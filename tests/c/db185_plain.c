/*
 * A plain program on the 1.85 btree interface, knowing nothing of the SDK: it reads a record
 * store's file as any other implementation would, or writes one the same way.
 *   db185_plain read FILE    every record, then the reserved records looked up by exact key
 *   db185_plain write FILE   a new file with the reserved records and two ordinary records
 */
#include <db_185.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>

static void print_bytes(const DBT *dbt) {
    const unsigned char *p = dbt->data;
    size_t i;
    for (i = 0; i < dbt->size; ++i) {
        if (p[i] == '\0') {
            printf("\\0");
        } else if (p[i] < 0x20 || p[i] > 0x7E || p[i] == '\\') {
            printf("\\x%02X", p[i]);
        } else {
            putchar(p[i]);
        }
    }
}

/* Reserved records hold a native int; everything else is shown as bytes. */
static void print_value(const DBT *key, const DBT *value) {
    int v;
    if (*(const char *)key->data == '#' && value->size == sizeof v) {
        memcpy(&v, value->data, sizeof v);
        printf("%d", v);
    } else {
        print_bytes(value);
    }
}

static const struct {
    const char *text;
    size_t len;
} reserved[] = {{"#KOVA@SYNC@TIME", 15}, {"#KOVA@DEPRECATED", 17}, {"#KOVA@EXPIRE@TIME", 17}};

static int read_file(const char *path) {
    DB *db = dbopen(path, O_RDONLY, 0, DB_BTREE, NULL);
    DBT key, value;
    size_t i;
    int rc;
    if (db == NULL) {
        perror(path);
        return 1;
    }
    while ((rc = db->seq(db, &key, &value, R_NEXT)) == 0) {
        printf("record %lu ", (unsigned long)key.size);
        print_bytes(&key);
        printf(" = ");
        print_value(&key, &value);
        printf("\n");
    }
    for (i = 0; i < sizeof reserved / sizeof reserved[0]; ++i) {
        key.data = (void *)reserved[i].text;
        key.size = reserved[i].len;
        printf("get %s/%lu = ", reserved[i].text, (unsigned long)reserved[i].len);
        if (db->get(db, &key, &value, 0) == 0) {
            print_value(&key, &value);
            printf("\n");
        } else {
            printf("absent\n");
        }
    }
    db->close(db);
    return rc == 1 ? 0 : 1;
}

static int put(DB *db, const char *k, size_t klen, const void *v, size_t vlen) {
    DBT key, value;
    key.data = (void *)k;
    key.size = klen;
    value.data = (void *)v;
    value.size = vlen;
    return db->put(db, &key, &value, 0);
}

static int write_file(const char *path) {
    DB *db = dbopen(path, O_RDWR | O_CREAT | O_TRUNC, 0666, DB_BTREE, NULL);
    int sync_time = 1700000000, deprecated = 1, expire = 1700000300;
    if (db == NULL) {
        perror(path);
        return 1;
    }
    if (put(db, reserved[0].text, reserved[0].len, &sync_time, sizeof sync_time) != 0 ||
        put(db, reserved[1].text, reserved[1].len, &deprecated, sizeof deprecated) != 0 ||
        put(db, reserved[2].text, reserved[2].len, &expire, sizeof expire) != 0 ||
        put(db, "alice", 5, "1001", 4) != 0 || put(db, "bob", 3, "1002", 4) != 0) {
        perror("put");
        db->close(db);
        return 1;
    }
    return db->close(db) == 0 ? 0 : 1;
}

int main(int argc, char **argv) {
    if (argc == 3 && strcmp(argv[1], "read") == 0) return read_file(argv[2]);
    if (argc == 3 && strcmp(argv[1], "write") == 0) return write_file(argv[2]);
    fprintf(stderr, "usage: db185_plain read|write FILE\n");
    return 2;
}
