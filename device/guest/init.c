/* SPDX-License-Identifier: MIT */
/*
 * The first process of the emulated device; called as "reboot", the command that restarts it. Loads the modules, mounts
 * the flash and the shared directories, runs one job, prints on the console how it ended, and switches the power off.
 *
 *     /job      shared with the host: the script to run, and whatever it leaves behind
 *     /flash    JFFS2 on the partition of that name
 *     /app      JFFS2 on the partition of that name
 *
 * Words of the kernel's command line, which arrive as environment variables:
 *     share=PATH    the host's directory that is seen under its own path
 *     shell=1       runs an interactive shell on the console
 *     flash=no      leaves the flash alone
 */
#include <errno.h>
#include <fcntl.h>
#include <net/if.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

static void off(void) {
    fflush(stdout);
    tcdrain(STDOUT_FILENO);
    sync();
    reboot(RB_POWER_OFF);
    for (;;) pause();
}

static void die(const char *format, ...) {
    va_list list;
    va_start(list, format);
    printf("\nvos-device: init: ");
    vprintf(format, list);
    printf(": %s\nvos-device: exit 125\n", strerror(errno));
    va_end(list);
    off();
}

static void make(const char *path) {
    if (mkdir(path, 0755) != 0 && errno != EEXIST) die("mkdir %s", path);
}

static void makeAll(const char *root, const char *path) {
    char each[512];
    snprintf(each, sizeof each, "%s", root);
    for (const char *part = path; *part != '\0';) {
        const size_t length = strcspn(part + 1, "/") + 1;
        strncat(each, part, length);
        make(each);
        part += length;
    }
}

static void attach(const char *what, const char *where, const char *type, unsigned long flags, const char *options) {
    if (mount(what, where, type, flags, options) != 0) die("mount %s on %s", what, where);
}

/* "/modules" names the files in the order in which they are loaded, with their parameters. */
static void loadModules(void) {
    char line[256];
    FILE *const list = fopen("/modules", "re");
    if (list == NULL) die("/modules");
    while (fgets(line, sizeof line, list) != NULL) {
        char *rest = line;
        line[strcspn(line, "\n")] = '\0';
        const char *const name = strsep(&rest, " ");
        const int module = open(name, O_RDONLY | O_CLOEXEC);
        if (module < 0) die("%s", name);
        if (syscall(SYS_finit_module, module, rest != NULL ? rest : "", 0) != 0) die("loading %s", name);
        close(module);
    }
    fclose(list);
}

static const char *word(const char *name) {
    const char *const value = getenv(name);
    return value != NULL ? value : "";
}

/* The programs are read-only; changes are in memory, and are lost when the power goes off. */
static void makeRoot(void) {
    static const char *const kBelow[] = {"/proc", "/sys", "/dev", "/tmp", "/run", "/flash", "/app", "/job"};
    attach("/dev/vda", "/lower", "squashfs", MS_RDONLY, NULL);
    attach("changes", "/changes", "tmpfs", 0, NULL);
    make("/changes/upper");
    make("/changes/work");
    attach("root", "/root", "overlay", 0, "lowerdir=/lower,upperdir=/changes/upper,workdir=/changes/work");
    for (size_t i = 0; i < sizeof kBelow / sizeof *kBelow; ++i) makeAll("/root", kBelow[i]);
    attach("proc", "/root/proc", "proc", 0, NULL);
    attach("sys", "/root/sys", "sysfs", 0, NULL);
    attach("dev", "/root/dev", "devtmpfs", 0, NULL);
    makeAll("/root", "/dev/pts");
    makeAll("/root", "/dev/shm");
    attach("pts", "/root/dev/pts", "devpts", 0, "mode=620,ptmxmode=666");
    attach("shm", "/root/dev/shm", "tmpfs", 0, NULL);
    attach("tmp", "/root/tmp", "tmpfs", 0, NULL);
    attach("run", "/root/run", "tmpfs", 0, NULL);
    /* A link, as on every system: a mount below one of the two is then visible below the other. */
    rmdir("/root/var/run");
    if (symlink("../run", "/root/var/run") != 0) die("/var/run");
}

static void offerReboot(void) {
    const int file = open("/root/usr/sbin/reboot", O_CREAT | O_WRONLY | O_CLOEXEC, 0755);
    if (file < 0) die("/usr/sbin/reboot");
    close(file);
    attach("/init", "/root/usr/sbin/reboot", NULL, MS_BIND, NULL);
}

static void mountFlash(void) {
    if (strcmp(word("flash"), "no") == 0) return;
    attach("/dev/mtdblock1", "/root/flash", "jffs2", 0, NULL);
    attach("/dev/mtdblock2", "/root/app", "jffs2", 0, NULL);
}

static void mountShares(void) {
    static const char kOptions[] = "trans=virtio,version=9p2000.L,msize=512000";
    char cached[128];
    snprintf(cached, sizeof cached, "%s,cache=loose", kOptions);
    attach("job", "/root/job", "9p", 0, kOptions);
    const char *const share = word("share");
    if (*share == '\0') return;
    char where[512];
    snprintf(where, sizeof where, "/root%s", share);
    makeAll("/root", share);
    attach("share", where, "9p", MS_RDONLY, cached);
}

static void loopbackUp(void) {
    struct ifreq loopback = {.ifr_name = "lo", .ifr_flags = IFF_UP};
    const int control = socket(AF_INET, SOCK_DGRAM, 0);
    if (ioctl(control, SIOCSIFFLAGS, &loopback) != 0) die("lo");
    close(control);
}

static int runJob(void) {
    const int interactive = strcmp(word("shell"), "1") == 0;
    const pid_t job = fork();
    if (job < 0) die("fork");
    if (job == 0) {
        static char *const kScript[] = {"bash", "/job/script", NULL};
        static char *const kShell[] = {"bash", "--login", "-i", NULL};
        static char *const kEnvironment[] = {
            "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", "LANG=C.UTF-8", "TERM=linux", "PS1=vos-device# ", NULL};
        setsid();
        if (interactive) ioctl(STDIN_FILENO, TIOCSCTTY, 0);
        execve("/bin/bash", interactive ? kShell : kScript, kEnvironment);
        die("/bin/bash");
    }
    /* The first process is the parent of every orphan. */
    for (int status = 0;;) {
        const pid_t ended = wait(&status);
        if (ended == job) return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        if (ended < 0 && errno != EINTR) die("wait");
    }
}

int main(int argc, char **argv) {
    if (argc > 0 && strstr(argv[0], "reboot") != NULL) {
        sync();
        return reboot(RB_AUTOBOOT);
    }
    const int console = open("/dev/console", O_RDWR | O_NOCTTY);
    for (int fd = 0; fd <= 2; ++fd)
        if (console >= 0) dup2(console, fd);
    if (console > 2) close(console);
    setvbuf(stdout, NULL, _IONBF, 0);
    attach("dev", "/dev", "devtmpfs", 0, NULL);
    loadModules();
    makeRoot();
    offerReboot();
    mountFlash();
    mountShares();
    loopbackUp();
    if (chroot("/root") != 0 || chdir("/") != 0) die("chroot");
    const int status = runJob();
    printf("\nvos-device: exit %d\n", status);
    off();
}
