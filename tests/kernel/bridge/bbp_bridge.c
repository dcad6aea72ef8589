// SPDX-License-Identifier: Apache-2.0 OR MIT
/*
 * An I2C adapter without hardware: bus number 1, whose one slave is a process behind
 * /dev/bbp_slave.
 *
 * The process reads the transfers, one at a time: the fields of struct bbp_request, in the
 * machine's byte order, then the bytes of a write. It answers each by writing a 32-bit result, 0 or
 * a negative errno value, followed by the bytes of a successful read.
 */
#include <linux/fs.h>
#include <linux/i2c.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/uaccess.h>
#include <linux/wait.h>

struct bbp_request {
    u16 address;
    u16 flags;
    u16 length;
};

enum bbp_phase { BBP_IDLE, BBP_OFFERED, BBP_TAKEN, BBP_ANSWERED };

static DEFINE_MUTEX(bbp_lock);
static DECLARE_WAIT_QUEUE_HEAD(bbp_changed);
static enum bbp_phase bbp_phase;
static struct i2c_msg* bbp_message;
static int bbp_result;

static void bbp_enter(enum bbp_phase phase) {
    WRITE_ONCE(bbp_phase, phase);
    wake_up_all(&bbp_changed);
}

static int bbp_transfer_one(struct i2c_msg* message) {
    int result;

    mutex_lock(&bbp_lock);
    bbp_message = message;
    bbp_enter(BBP_OFFERED);
    mutex_unlock(&bbp_lock);

    wait_event_timeout(bbp_changed, READ_ONCE(bbp_phase) == BBP_ANSWERED, 2 * HZ);

    mutex_lock(&bbp_lock);
    result = bbp_phase == BBP_ANSWERED ? bbp_result : -ETIMEDOUT;
    bbp_message = NULL;
    bbp_enter(BBP_IDLE);
    mutex_unlock(&bbp_lock);
    return result;
}

static int bbp_transfer(struct i2c_adapter* adapter, struct i2c_msg* messages, int count) {
    int i;

    for (i = 0; i < count; ++i) {
        const int result = bbp_transfer_one(&messages[i]);

        if (result < 0)
            return result;
    }
    return count;
}

static u32 bbp_functionality(struct i2c_adapter* adapter) {
    return I2C_FUNC_I2C;
}

static ssize_t bbp_read(struct file* file, char __user* to, size_t size, loff_t* position) {
    struct bbp_request request;
    ssize_t result = -EAGAIN;

    if (wait_event_interruptible(bbp_changed, READ_ONCE(bbp_phase) == BBP_OFFERED))
        return -ERESTARTSYS;
    mutex_lock(&bbp_lock);
    if (bbp_phase == BBP_OFFERED) {
        const size_t data = bbp_message->flags & I2C_M_RD ? 0 : bbp_message->len;

        request.address = bbp_message->addr;
        request.flags = bbp_message->flags;
        request.length = bbp_message->len;
        result = -EINVAL;
        if (size >= sizeof(request) + data) {
            result = -EFAULT;
            if (!copy_to_user(to, &request, sizeof(request)) &&
                !copy_to_user(to + sizeof(request), bbp_message->buf, data)) {
                result = sizeof(request) + data;
                bbp_enter(BBP_TAKEN);
            }
        }
    }
    mutex_unlock(&bbp_lock);
    return result;
}

static ssize_t bbp_write(struct file* file, const char __user* from, size_t size,
                         loff_t* position) {
    s32 answer;
    ssize_t result = -EINVAL;

    mutex_lock(&bbp_lock);
    if (bbp_phase == BBP_TAKEN && size >= sizeof(answer)) {
        const size_t data = size - sizeof(answer);

        if (copy_from_user(&answer, from, sizeof(answer)))
            result = -EFAULT;
        else if (data <= bbp_message->len &&
                 !copy_from_user(bbp_message->buf, from + sizeof(answer), data)) {
            bbp_result = answer;
            result = size;
            bbp_enter(BBP_ANSWERED);
        }
    }
    mutex_unlock(&bbp_lock);
    return result;
}

static const struct file_operations bbp_operations = {
    .owner = THIS_MODULE,
    .read = bbp_read,
    .write = bbp_write,
};

static struct miscdevice bbp_device = {
    .minor = MISC_DYNAMIC_MINOR,
    .name = "bbp_slave",
    .fops = &bbp_operations,
};

static const struct i2c_algorithm bbp_algorithm = {
    .master_xfer = bbp_transfer,
    .functionality = bbp_functionality,
};

static ushort max_write;
module_param(max_write, ushort, 0444);
MODULE_PARM_DESC(max_write, "longest write that the adapter can do; 0: no limit");

static struct i2c_adapter_quirks bbp_quirks;

static struct i2c_adapter bbp_adapter = {
    .owner = THIS_MODULE,
    .name = "bbp bridge",
    .algo = &bbp_algorithm,
    .quirks = &bbp_quirks,
    .nr = 1,
};

static int __init bbp_init(void) {
    int result = misc_register(&bbp_device);

    if (result)
        return result;
    bbp_quirks.max_write_len = max_write;
    result = i2c_add_numbered_adapter(&bbp_adapter);
    if (result)
        misc_deregister(&bbp_device);
    return result;
}

static void __exit bbp_exit(void) {
    i2c_del_adapter(&bbp_adapter);
    misc_deregister(&bbp_device);
}

module_init(bbp_init);
module_exit(bbp_exit);
MODULE_DESCRIPTION("An I2C adapter whose slave is a process");
MODULE_LICENSE("Dual MIT/GPL");
