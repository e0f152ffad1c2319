#include "tools/usage_text.h"

#include "vorlix_version.h"

namespace vx {

void PrintSendHelp(FILE* out) {
    fputs(
        "Usage: vorlix-send [options] [file ...]\n"
        "Sends each file to a Vorlix print server as a job of its own (\"-\" or no file: standard\n"
        "input), in the extended protocol or, with --lpd, in plain LPD (RFC 1179). The identifier\n"
        "of each delivered job is written to standard output, one line per job.\n"
        "\n"
        "  -H host[:port]       server (default localhost:515; [address]:port for IPv6)\n"
        "  -P printer           printer (default: $PRINTER, else the server's default printer)\n"
        "  -U owner             owner of the job (default: the user name)\n"
        "  -T title             title of the job (default: the file's name)\n"
        "  -# copies            number of copies, 1 to 999\n"
        "  --tray=N             input tray (0 to 99)\n"
        "  --duplex=N           duplex mode (0 to 9)\n"
        "  --job-id=ID          job identifier (up to 40 characters; further files get -2, -3, "
        "...)\n"
        "  --no-status          the server keeps no status for the job\n"
        "  --option=OPT         job option: NO_PAPER, SUM or FILE:name (repeatable)\n"
        "  --data-type=TYPE     data type (default RAW)\n"
        "  --dt=VALUE           DT field (default RAW)\n"
        "  --compress=c1|c2     compress the data blocks (C1 byte runs, C2 deflate)\n"
        "  --scramble           scramble the data blocks (K1)\n"
        "  --checksum           send a checksum with every data block\n"
        "  --lpd                plain LPD instead of the extended protocol\n"
        "  --status=JOBID       ask for a job's final status (LPD \"JOB\" query)\n"
        "  --queue-state        ask for the printer's queue (LPD queue-state query)\n"
        "  --list-printers      list the server's installed printers\n"
        "  --query-options=LIST ask which extensions the server offers (e.g. C1,C2,K1)\n"
        "  --query-equipment=EQ ask whether the server has an equipment (BC bar codes, FX fax):\n"
        "                       Y, N, or U for unknown\n"
        "  --secure             secure every extended-protocol session with TLS (needs --cert\n"
        "                       and --ca; not with --lpd, --status or --queue-state)\n"
        "  --secure-mode=S|A    the mode letter of the security command (KS or KA; default S)\n"
        "  --cert=FILE          the sender's certificate: a PEM file on Linux; on Windows a PFX\n"
        "                       file holding the certificate with its private key\n"
        "  --key=KEY            Linux: the PEM file of the private key (default: the --cert "
        "file);\n"
        "                       Windows: the PFX file's password (default: none)\n"
        "  --ca=FILE            the CA (PEM) the server's certificate must be signed by; the\n"
        "                       server's name is not compared with the host name\n"
        "  --timeout=SECONDS    give up when the server is silent this long (default 60)\n"
        "  --quiet              no progress display, no warnings, no job identifiers\n"
        "  --help, --version\n"
        "\n"
        "Options that only the extended protocol carries (--tray, --duplex, --job-id, "
        "--no-status,\n"
        "--option, --compress, --scramble, --checksum) are refused together with --lpd.\n"
        "A compression the server does not offer is left out with a warning; scrambling it does "
        "not\n"
        "offer refuses the job.\n"
        "\n"
        "Exit codes:\n"
        "  0   delivered (a query: answered; --status: the job is done)\n"
        "  1   refused by the server (or --status: the job failed or is unknown)\n"
        "  2   network failure (no connection, connection lost, time-out)\n"
        "  3   --status: the job has no final status yet\n"
        "  64  usage error\n"
        "  66  an input file could not be read\n"
        "With several files the exit code is that of the first failure; after a network failure\n"
        "the remaining files are not sent.\n",
        out);
}

void PrintSendVersion(FILE* out) {
    fprintf(out, "vorlix-send %s (%s)\n", VORLIX_FILE_VERSION, VORLIX_PRODUCT_VERSION);
}

}  // namespace vx
