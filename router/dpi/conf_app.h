/*
 * Loaders of the text databases that the DPI engine keeps under "/tmp/trend". Each reads one file
 * into a list of records in file order; the searches walk that list.
 *
 * The caller owns the head of every list and initialises it empty (LIST_HEAD_INIT, list_init)
 * before it loads; the records and their texts belong to the list until the matching free function,
 * which leaves an empty list that may be loaded again. What a search returns belongs to its record.
 *
 * In all files a line that begins with '#' is a comment, and a line longer than the loader's buffer
 * is read in pieces, each treated as a line. A line that does not fit its format still adds a
 * record: what its scan did not reach keeps the values of the line before (ids start at 0 in each
 * load, texts live as long as the process). A line for which there is no memory is skipped.
 *
 * Loading keeps texts in static buffers, so only one thread may load at a time.
 */
#ifndef DPI_CONF_APP_H
#define DPI_CONF_APP_H

#include "list_head.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One entry of the file list: where a database lies. */
struct system_conf {
    char *filepath; /* the database's path */
    char *filename; /* the key that names it */
    struct list_head list;
};

/* The name of one application. */
struct app_inf {
    uint32_t cat_id;
    uint32_t app_id;
    uint32_t beh_id; /* behaviour: kept, no search looks at it */
    char *app_name;
    struct list_head list;
};

/* The name of one category; also of one rule of the rule database. */
struct app_cat {
    uint32_t cat_id;
    char *cat_name;
    struct list_head list;
};

/* The names behind the six identifiers of a device. */
struct dev_os {
    uint32_t vendor_id;
    uint32_t os_id;
    uint32_t class_id;
    uint32_t type_id;
    uint32_t dev_id;
    uint32_t family_id;
    char *vendor_name;
    char *os_name;
    char *class_name;
    char *type_name;
    char *dev_name;
    char *family_name;
    struct list_head list;
};

/* One of the engine's device types and the router's own type for it. */
struct dev_mapping {
    uint32_t tm_id;   /* the engine's device type */
    uint32_t vosk_id; /* the router's */
    char *tm_name;
    char *vosk_name;
    struct list_head list;
};

/*
 * Loads the list of database files, "/tmp/trend/bwdpi.txt": lines of KEY:PATH, the path up to the
 * first blank. A missing file is first created with the three default entries. 0 when the file was
 * read to its end, or when the newly created one cannot be opened again; -1, with a message on
 * standard error, when it was missing and cannot be created.
 */
int init_system_conf(struct list_head *head);

/* The path of the first entry with this key, upper and lower case alike; NULL when there is none.
 */
char *search_sys_conf(struct list_head *head, const char *filename);

void free_system_conf(struct list_head *head);

/*
 * Loads the application database (key "APP_INF_DB_PATH", default "/tmp/trend/bwdpi.app.db"): lines
 * of category id, application id, behaviour id, name. A name ends before its first '0' or
 * backslash: "Game 2048" is "Game 2". Ids out of the range of int are limited to it. 0, or -1 with
 * a message on standard error when the file cannot be opened.
 */
int init_app_inf(struct list_head *head);

/* The name of the first record with both ids; NULL when there is none. */
char *search_app_inf(struct list_head *head, unsigned int cat_id, unsigned int app_id);

void free_app_inf(struct list_head *head);

/*
 * Loads the category database (key "APP_CAT_DB_PATH", default "/tmp/trend/bwdpi.cat.db"): lines of
 * category id, name. Names end as those of applications; an id above 4294967295 is limited to it.
 * 0, or -1 with a message on standard error when the file cannot be opened.
 */
int init_app_cat(struct list_head *head);

/* The name of the first record with this id; NULL when there is none. */
char *search_app_cat(struct list_head *head, unsigned int cat_id);

void free_app_cat(struct list_head *head);

/*
 * Loads the device type database (key "DEV_OS_DB_PATH", default "/tmp/trend/bwdpi.devdb.db"): lines
 * of six ids, then six names in double quotes, in the record's order. A name has 1 to 99
 * characters; the scan of a line ends at one that is empty or longer. 0, or -1 with a message on
 * standard error when the file cannot be opened.
 */
int init_dev_os(struct list_head *head);

/*
 * The first record whose ids all equal the query's, where a query id of 0 matches every id except
 * the vendor's. When there is none, the last record that matches in vendor and os; NULL when there
 * is not even that.
 */
struct dev_os *search_dev_os(struct list_head *head, unsigned int vendor_id, unsigned int os_id,
                             unsigned int class_id, unsigned int type_id, unsigned int dev_id,
                             unsigned int family_id);

void free_dev_os(struct list_head *head);

/*
 * Loads the device mapping, "/tmp/trend/TmToVosk_dev_mapping": lines of the engine's type id, its
 * quoted name, the router's type id, its quoted name; names as in the device type database. 0, or
 * -1 with a message on standard error when the file cannot be opened.
 */
int init_dev_mapping(struct list_head *head);

/* The first record of this engine type; NULL when there is none. */
struct dev_mapping *search_dev_mapping(struct list_head *head, unsigned int tm_id);

void free_dev_mapping(struct list_head *head);

/*
 * Loads the rule database, "/tmp/trend/bwdpi.rule.db", into app_cat records: lines of id, name;
 * from a '#' on the rest of a line is a comment. 0, or -1 with a message on standard error when the
 * file cannot be opened.
 */
int init_rule_db(struct list_head *head);

/* The name of the first record with this id; NULL when there is none. */
char *search_rule_db(struct list_head *head, unsigned int id);

void free_rule_db(struct list_head *head);

/* Removes every leading and trailing delim from s, in place. */
void _trim(char *s, char delim);

#ifdef __cplusplus
}
#endif

#endif
