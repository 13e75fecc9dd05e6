/**
 * @file process.h
 * Shell commands without forking a large process, running tasks, swap on a recording disk.
 *
 * A recorder holds so much memory that forking it takes longer than most commands run. So it forks a small runner
 * process first of all, before it has grown, and hands it commands through shared memory:
 *
 *     int main(void) {
 *         const int runner = VkSystemInit();
 *         ...
 *         int status = VkSystem("mkdir -p /mnt/disk0/record");
 *         FILE *lines = VkPipeOpen("df -k", "r");
 *         ...
 *         VkPipeClose(lines);
 *
 * The runner is never ended by the library. It outlives VkSystemUninit(), and the process that forked it: who ends for
 * good ends the runner with kill(runner, SIGKILL) and waits for it.
 */
#ifndef VELKOR_PROCESS_H
#define VELKOR_PROCESS_H

#include <stdio.h>

#include <velkor/api.h>

VELKOR_BEGIN_C

/** Commands that can be under way at the same time. */
#define VELKOR_COMMAND_SLOTS 52
/** A command must be shorter than this many characters. */
#define VELKOR_COMMAND_SIZE 512
/** Process ids that vk_FindRunningTask() writes at most. */
#define VELKOR_TASK_IDS 16
/** A task name must be shorter than this many characters. */
#define VELKOR_TASK_NAME_SIZE 32
/** Disks are numbered from 0 up to this, exclusive. */
#define VELKOR_SWAP_DISKS 24

/** @name Command runner
 * @{ */

/**
 * Fork the runner process. Call it early: the runner keeps a copy of everything that the process holds then, and
 * forking a small process with one thread is quick and safe. Thread-safe.
 *
 * A file named "TODO" must be in the working directory: it gives the shared memory its key (`ftok("TODO", 'a')`). Two
 * processes that use the same file share one area.
 *
 * The runner keeps the working directory, the environment, the signal mask and the standard streams of the caller:
 * commands find them as they were at this call. It ignores SIGPIPE, SIGUSR1 and SIGUSR2 (so do its commands), and takes
 * the default action for SIGCHLD.
 *
 * **Descriptors.** The runner also keeps every descriptor that is open at this call, as fork() leaves it, until it is
 * ended itself, also when its parent has ended before. So a pipe or a socket has one more holder: whoever is at the
 * other end sees no end of it as long as the runner lives. Only streams of vk_popen() are closed in it. Commands get
 * those that do not close on exec. Therefore: call this before anything is opened, open with O_CLOEXEC what no command
 * is to have, and end the runner when the process ends.
 *
 * A second call while the area is attached tears it down as VkSystemUninit() does, and fails; a third one starts anew.
 *
 * @return the runner's process id
 * @retval -1  no file "TODO", no shared memory, no process, or the area was attached already. Nothing is attached then
 */
VELKOR_API int VkSystemInit(void);

/**
 * Detach the shared area and remove it from the system; nothing happens when none is attached. The runner process goes
 * on. Calls that still wait get their answer. Streams of VkPipeOpen() stay open and readable, but can only be closed
 * with fclose() from now on. Thread-safe.
 */
VELKOR_API void VkSystemUninit(void);

/**
 * Run a shell command in the runner process and wait for its end, like system(). There is no time limit: a call whose
 * runner was killed never returns. Thread-safe; the commands of different threads run side by side.
 *
 * @param command  shorter than 512 characters
 * @return the wait status as system() gives it: WIFEXITED() and its like take it apart; a command that exits with 3
 *         gives 768. -1 when the runner could not start a thread
 * @retval -1  @p command is NULL or too long, no area is attached, or 52 commands are under way
 */
VELKOR_API int VkSystem(const char *command);

/**
 * Run a shell command in the runner process and read its output, like popen(). Waits until the runner has made the pipe
 * "/tmpfile/vk_pipe_file_N.pipe", without a time limit; the directory must exist. Thread-safe.
 *
 * @param command  shorter than 512 characters
 * @param mode     for fopen(): "r"
 * @return a stream to be closed with VkPipeClose(), closed on exec; it ends when the command has ended, or the runner
 * @retval NULL  an argument is NULL, the command is too long, no area is attached, 52 commands are under way, or the
 *               pipe could not be made or opened
 */
VELKOR_API FILE *VkPipeOpen(const char *command, const char *mode);

/**
 * Close a stream that this process opened with VkPipeOpen(). Does not wait for the command, which finds its output
 * closed when it writes on. A forked child has copies of its parent's streams, which are not its own: it closes them
 * with fclose(). Thread-safe.
 *
 * @retval 0   closed; also for any other stream, which is left alone
 * @retval -1  @p stream is NULL, or no area is attached: the stream is left open
 */
VELKOR_API int VkPipeClose(FILE *stream);

/**
 * popen() that does not copy the process: the shell is started by vfork(). Needs no runner. Thread-safe.
 *
 * @param command  for "/bin/sh -c"
 * @param mode     begins with 'r' (read the command's standard output) or 'w' (write to its standard input); the rest
 *                 is fdopen()'s
 * @return a stream to be closed with vk_pclose(); its descriptor is closed on exec
 * @retval NULL  @p mode begins otherwise or is NULL (errno EINVAL), or there is no memory, descriptor or process
 */
VELKOR_API FILE *vk_popen(const char *command, const char *mode);

/**
 * Close @p stream, one of vk_popen(), and wait for its command. Thread-safe.
 *
 * @return the wait status of the command
 * @retval -1  the stream is none of vk_popen()'s (errno EINVAL; it is left alone), or the command cannot be waited for
 */
VELKOR_API int vk_pclose(FILE *stream);
/** @} */

/** @name Running tasks
 * @{ */

/**
 * Find the processes whose line of `ps` contains a name. Lines that contain "sh" or "grep" are left out, except that
 * "sshd" may be looked for. Needs the command runner and the directory "/tmpfile". The name becomes part of a shell
 * command as it is. Thread-safe.
 *
 * @param _strTaskName  1 to 31 characters
 * @param _piTaskCnt    where the number of lines goes, 16 at most
 * @param _piTaskIds    room for 16 process ids; a line that does not begin with a number gives 0. NULL is left alone
 * @retval 0    the count and that many ids are written; without a runner the count is 0
 * @retval -1   @p _strTaskName is NULL (reported on the debug stream)
 * @retval -2   @p _piTaskCnt is NULL (reported on the debug stream)
 * @retval -10  the name has 32 characters or more
 * @retval -11  the name is empty
 * @retval -12  no temporary file could be made in "/tmpfile"
 * @retval -13  the file with the result could not be read
 */
VELKOR_API int vk_FindRunningTask(const char *_strTaskName, int *_piTaskCnt, int *_piTaskIds);
/** @} */

/** @name Swap
 * One swap file on one of the data disks, made and removed by the firmware's script "/dvr/swap_ctrl.sh". Starting and
 * stopping are done one after the other, whatever thread asks. @{ */

/**
 * Have the script put a swap file on a disk. Needs the command runner.
 *
 * @param _iDiskNo  0 to 23; a negative number takes the first disk that is fit for it
 * @retval 0   swap is running
 * @retval -2  swap was running already
 * @retval -3  there is no such disk, or it is not mounted
 * @retval -4  the script failed
 */
VELKOR_API int swapmem_Start(int _iDiskNo);

/**
 * Look at the first swap area of "/proc/swaps". Any pointer may be NULL. Thread-safe, needs no runner.
 *
 * @param _piStat  1 when it is a "swapfile.dat", else 0
 * @param _piSize  its size in kB, 0 when it is none
 * @param _piUsed  kB in use, 0 when it is none
 * @retval 0   looked
 * @retval -1  "/proc/swaps" cannot be opened; all three are 0
 * @retval -2  its line cannot be taken apart; nothing is written
 */
VELKOR_API int swapmem_Check(int *_piStat, int *_piSize, int *_piUsed);

/**
 * Have the script take the swap file away again. When it is heavily used (`cfg_gSwapHighLv()`), the recorder's channels
 * are paused meanwhile, the cloud connection's process is ended, and two seconds pass first. Needs the command runner.
 *
 * @param _iDiskNo  the disk on which swap is running
 * @retval 0   swap is stopped
 * @retval -1  the number is not 0 to 23
 * @retval -2  swap is not running on this disk
 * @retval -3  the script failed: swap counts as running
 */
VELKOR_API int swapmem_Stop(int _iDiskNo);
/** @} */

VELKOR_END_C

#endif
