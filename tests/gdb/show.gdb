up-silently
set width 0
set print pretty on
set logging overwrite on
set logging redirect on
set logging enabled on
set trace-commands on
print *meta
print text
print *text
print nothing
print noValue
print noText
print unknown
print noEntries
print param
print noParts
print longParam
print queue
print stoppedQueue
print (const osal::MsgQueue&)stoppedQueue
print stoppingQueue
print unused
print running
print ended
print starting
# Damaged objects.
print *(osal::MediaMeta*)garbage
print *(osal::MediaMeta::MetaItem*)garbage
print *(osal::MediaParam*)garbage
print *(osal::MsgQueue*)garbage
print *(osal::Thread*)garbage
# A standard library without pretty-printers.
disable pretty-printer .* libstdc.*
print *meta
print *text
print param
print queue
print running
