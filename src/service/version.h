/* The one source of the product's version texts: the Windows version resource includes this
   header, and the Linux build compiles the same strings in. Plain macros so that the resource
   compiler can read it too. */
#ifndef VORLIX_VERSION_H
#define VORLIX_VERSION_H

#define VORLIX_FILE_DESCRIPTION "Vorlix Print Service"
#define VORLIX_PRODUCT_NAME "Vorlix Application"
#define VORLIX_FILE_VERSION "7500.1.0.47"
#define VORLIX_FILE_VERSION_BINARY 7500, 1, 0, 47
#define VORLIX_PRODUCT_VERSION "750 Final Release"
#define VORLIX_PROTOCOL_VERSION 231

#endif
