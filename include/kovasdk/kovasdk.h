/* The whole system SDK: every family's header. */
#ifndef KOVASDK_KOVASDK_H
#define KOVASDK_KOVASDK_H

#include "bdb.h"
#include "error.h"
#include "file.h"
#include "hash.h"
#include "kstring.h"
#include "list.h"
#include "proc.h"
#include "unicode.h"

#endif /* KOVASDK_KOVASDK_H */
