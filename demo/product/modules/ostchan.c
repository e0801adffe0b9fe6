// A channel over a link of ostlink, held for as long as the module is loaded.
#include "demo.h"
#include "ostlink.h"

MODULE_DESCRIPTION("Ostrel demo: a channel over a link");

static unsigned int channel;

static int __init ostchan_init(void)
{
	channel = ostlink_open();
	pr_info("ostchan: channel over link %u\n", channel);
	return 0;
}

static void __exit ostchan_exit(void)
{
	ostlink_close(channel);
}

module_init(ostchan_init);
module_exit(ostchan_exit);
