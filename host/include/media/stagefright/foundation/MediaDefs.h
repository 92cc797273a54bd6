// The platform also offers the media type strings under this name.
#include <media/stagefright/MediaDefs.h>
