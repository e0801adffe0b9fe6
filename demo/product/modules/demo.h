// What every module of the demo product says of itself.
#include <linux/init.h>
#include <linux/kernel.h>
#include <linux/module.h>

MODULE_LICENSE("GPL");
MODULE_AUTHOR("ostrel-kernprep maintainers");
MODULE_INFO(ostccver, OSTCCVER);
MODULE_INFO(smp, __stringify(SUPPORT_SMP));
