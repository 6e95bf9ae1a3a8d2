/* The whole system SDK: every family's header. */
#ifndef KOVASDK_KOVASDK_H
#define KOVASDK_KOVASDK_H

#include "error.h"
#include "list.h"
#include "proc.h"
#include "unicode.h"

#endif /* KOVASDK_KOVASDK_H */
