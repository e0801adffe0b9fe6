// The links that modules of the product hold on one another. Each unsigned number names one open link.
unsigned int ostlink_open(void);
void ostlink_close(unsigned int link);
