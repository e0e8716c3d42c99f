# AttachDrive.ps1 -KeyFile SECn.iscsi: makes a drive of a mounted volume with the iSCSI initiator of Windows.
# Needs an elevated shell. The secret is read from the file, which only the user can open; it stands on no
# command line. The letters of the drive are left in SECn.drive beside the file.
param([Parameter(Mandatory = $true)] [string] $KeyFile)

$ErrorActionPreference = 'Stop'

# "key=value" a line; names and secrets hold no backslash.
$keys = ConvertFrom-StringData (Get-Content -LiteralPath $KeyFile -Raw)
$driveFile = [IO.Path]::ChangeExtension($KeyFile, '.drive')

function Show-ByHand {
    Write-Host @"
This Windows has no Storage module. To attach the volume by hand, as administrator:

  sc start MSiSCSI
  iscsicli QAddTargetPortal $($keys.address) $($keys.user) $($keys.secret)

or in "iSCSI Initiator" of the control panel: on the page "Discovery" the portal $($keys.address), port $($keys.port),
with CHAP (Advanced): name $($keys.user), secret $($keys.secret); then on the page "Targets" connect
$($keys.target) with the same name and secret, not as a favourite.
"@
    Read-Host 'Enter ends'
}

if (-not (Get-Command Connect-IscsiTarget -ErrorAction SilentlyContinue)) {
    Show-ByHand
    exit 2
}
if ((Get-Service MSiSCSI).Status -ne 'Running') {
    Start-Service MSiSCSI
}

$portal = @{ TargetPortalAddress = $keys.address; TargetPortalPortNumber = [uint16]$keys.port }
$proof = @{ AuthenticationType = 'ONEWAYCHAP'; ChapUsername = $keys.user; ChapSecret = $keys.secret }
New-IscsiTargetPortal @portal @proof | Out-Null
try {
    $session = Connect-IscsiTarget -NodeAddress $keys.target @portal @proof -IsPersistent $false
    $disk = $null
    for ($tries = 0; $tries -lt 100 -and -not $disk; $tries++) {
        Start-Sleep -Milliseconds 200
        $disk = $session | Get-Disk -ErrorAction SilentlyContinue
    }
    if (-not $disk) {
        throw 'Windows connected to the volume, but shows no disk of it.'
    }
    if ($disk.IsOffline) {
        Set-Disk -Number $disk.Number -IsOffline $false
    }
    if ($disk.IsReadOnly) {
        Set-Disk -Number $disk.Number -IsReadOnly $false
    }
    Update-Disk -Number $disk.Number
    # An empty volume has no letter yet: Windows offers to initialise and format it in Disk Management.
    $letters = @(Get-Partition -DiskNumber $disk.Number -ErrorAction SilentlyContinue |
            Where-Object { $_.DriveLetter } | ForEach-Object { "$($_.DriveLetter):" })
    Set-Content -LiteralPath $driveFile -Value ($letters -join ' ') -Encoding ascii
}
catch {
    Remove-IscsiTargetPortal @portal -Confirm:$false -ErrorAction SilentlyContinue
    Write-Host $_
    Read-Host 'The volume could not be attached. Enter ends'
    exit 1
}
