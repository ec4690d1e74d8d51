/** How right the announcements were: episodes, and what they come to. */
package com.quorin.sysmgt.tavl.LumetraAgent.score;
